// The samples of a recording as a page.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "host/outputs/output.h"
#include "host/plot/findings.h"
#include "host/plot/page_model.h"
#include "host/plot/page_writer.h"
#include "host/plot/reduction.h"

namespace tev::host {

class PlotOutput final : public Output {
 public:
  // `most_bytes` is the size of the page. `projection` and `figures` must outlive this.
  PlotOutput(const Projection& projection, const Figures& figures, std::uint64_t most_bytes);

  const Projection* projection() const override { return &projection_; }
  void event(const Event& event, const Series& series) override;
  void update(const RunStatus& status) override;
  void end(const RunStatus& status) override;

  // To be called after end(). Throws RunError.
  void write(const PageFiles& files, const PageHead& head, WholeFile& file,
             const std::function<bool()>& interrupted) const;

 private:
  const Projection& projection_;
  const Figures& figures_;
  std::uint64_t most_bytes_;
  Reduction reduction_;
  Findings findings_;
  MissingList missing_;
  std::vector<DeviceHealth> health_;
};

}  // namespace tev::host
