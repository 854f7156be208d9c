// How evenly a plug-in samples, and what a sample costs, beside a bare loop that only sleeps.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "host/bare_loop.h"
#include "host/distribution.h"
#include "host/formatter.h"

namespace tev::host {

// Stands before a formatter and looks at what passes: the intervals between the time stamps of the
// first series, and the CPU time that the plug-in's threads took for them, mean by update; and at
// the same of the bare loop.
class JitterMeter final : public Formatter {
 public:
  JitterMeter(std::unique_ptr<Formatter> formatter, std::uint64_t interval_usec);

  void event(const Event& event, const Series& series) override;
  void update(const RunStatus& status) override;
  void end(const RunStatus& status) override;
  void leave() override;

  // Lines for the summary. To be called after leave().
  std::string report() const;

 private:
  std::unique_ptr<Formatter> formatter_;
  std::uint64_t interval_usec_;
  std::uint64_t last_usec_ = 0;     // time stamp; 0: none yet
  Distribution intervals_;          // nanoseconds
  Distribution costs_;              // nanoseconds of CPU per pass
  Distribution bare_costs_;         // the same per wake-up of the bare loop
  std::uint64_t lost_samples_ = 0;  // of all devices
  std::uint64_t passes_in_window_ = 0;
  std::uint64_t plugin_nsec_ = 0;  // CPU of all threads but this one and the bare loop's, at the
  BareLoop::Usage bare_usage_;     // last update; and what the bare loop had used
  BareLoop bare_;                  // last: it measures from now on
};

}  // namespace tev::host
