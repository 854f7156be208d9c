// Measures the sampling intervals of a plug-in and the CPU time of a sample, and compares both with
// a reference timer that only sleeps.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "host/outputs/output.h"
#include "host/timing/distribution.h"
#include "host/timing/reference_timer.h"

namespace tev::host {

// Measures the intervals between the time stamps of the first series that it receives, and the CPU
// time that each of the plug-in's threads uses from one update to the next. Both are compared with
// a reference timer.
class JitterMeter final : public Output {
 public:
  // `projection` chooses the series and must outlive this.
  JitterMeter(const Projection& projection, std::uint64_t interval_usec);

  const Projection* projection() const override { return &projection_; }
  void begin() override { reference_.start(); }

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
    ReferenceTimer::Usage reference{};
    std::map<pid_t, std::uint64_t> threads{};  // CPU time of each of the plug-in's threads
  };
  Reading read(const RunStatus& status);
  void addCosts(const Reading& now);

  struct ThreadCost {
    std::string name;
    Distribution costs;  // nanoseconds of CPU per pass, mean by update
  };

  const Projection& projection_;
  std::uint64_t interval_usec_;
  std::optional<std::size_t> series_;  // the one whose intervals are measured
  std::uint64_t last_usec_ = 0;        // its last time stamp; 0: none yet
  std::uint64_t passes_ = 0;           // its events since the last update
  Distribution intervals_;             // nanoseconds
  Distribution costs_;                 // nanoseconds of CPU per pass, mean by update
  std::map<pid_t, ThreadCost> thread_costs_;
  Distribution reference_costs_;  // the same per wake-up of the timer
  std::uint64_t lost_samples_ = 0;
  std::optional<Reading> last_;
  ReferenceTimer reference_;
};

}  // namespace tev::host
