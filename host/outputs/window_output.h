// The base of outputs that write a record per window instead of the events.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/figures/windows.h"
#include "host/outputs/text_output.h"

namespace tev::host {

std::unique_ptr<Output> makeWindowJsonl(const OutputSetup& setup);
std::unique_ptr<Output> makeWindowCsv(const OutputSetup& setup);

class WindowOutput : public TextOutput {
 public:
  void event(const Event& event, const Series& series) override;
  void update(const RunStatus& status) override;
  void end(const RunStatus& status) override;

 protected:
  // `setup.window_usec` must have a value.
  explicit WindowOutput(const OutputSetup& setup);

  // Append the lines of a window. The mark kCauses stands for the causes of missing samples, which
  // are known only after the fetch.
  virtual void append(std::string& out, const SeriesWindow& window) = 0;
  virtual void append(std::string& out, const DeviceWindow& window) = 0;
  // Appends the lines of what the last update found.
  virtual void append(std::string& out, const RunStatus& status) = 0;

  bool isPartial(const SeriesWindow& window) const { return windows_.isPartial(window); }

  static constexpr char kCauses = '\0';  // not part of any text

  const Figures& figures_;

 private:
  // The text of one series in one window.
  struct Pending {
    std::string device;
    std::string text;
  };

  void write(const RunStatus& status);

  Windows windows_;
  std::vector<Pending> pending_;
};

}  // namespace tev::host
