// How evenly a plug-in samples, and what a sample costs, beside a bare loop that only sleeps.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "host/bare_loop.h"
#include "host/distribution.h"
#include "host/formatter.h"

namespace tev::host {

// Stands before a formatter and looks at what passes: the intervals between the time stamps of the
// first series that it sees, and the CPU time that the plug-in's threads took from one update to
// the next. Beside them, both of the bare loop.
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
  // Totals at an update.
  struct Reading {
    std::uint64_t lost_samples = 0;  // of all devices
    BareLoop::Usage bare{};
    std::uint64_t plugin_nsec = 0;  // CPU of all threads but this one and the bare loop's
  };
  Reading read(const RunStatus& status);

  std::unique_ptr<Formatter> formatter_;
  std::uint64_t interval_usec_;
  std::optional<std::size_t> series_;  // the one whose intervals are measured
  std::uint64_t last_usec_ = 0;        // its last time stamp; 0: none yet
  std::uint64_t passes_ = 0;           // its events since the last update
  Distribution intervals_;             // nanoseconds
  Distribution costs_;                 // nanoseconds of CPU per pass, mean by update
  Distribution bare_costs_;            // the same per wake-up of the bare loop
  std::uint64_t lost_samples_ = 0;
  std::optional<Reading> last_;
  BareLoop bare_;  // last: it measures from now on
};

}  // namespace tev::host
