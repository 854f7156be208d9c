#pragma once

#include <cstdint>

#include "collector/clock.h"
#include "collector/ledger.h"

namespace tev::events::multipath {

// When the passes of a sampling thread are due, on the monotonic clock.
//
// A pass is due one interval after the pass before it was due, so the delay of one wake-up does not
// move the passes that follow. Two things move them:
//
// - A pass that takes an interval or longer is followed immediately by the next, and the due times
//   restart from there.
// - A wake-up may come so late that the next due time is less than half an interval away from the
//   beginning of the pass. The due times then restart from the beginning of that pass, so that a
//   late wake-up never makes two samples closer than half an interval.
class Pacing {
 public:
  // The first pass is due at `first`. Interval 0: each pass is due when the one before it ends.
  // Overruns, late wake-ups and the missed passes are counted in `ledger`.
  Pacing(Clock::TimePoint first, std::uint64_t interval_usec, PassLedger& ledger)
      : interval_usec_(interval_usec), ledger_(ledger), due_(first) {}

  // The due time of the pass that follows a pass with this beginning and end. Clock::kNever when
  // the clock's type cannot represent it.
  Clock::TimePoint next(Clock::TimePoint began, Clock::TimePoint ended);

 private:
  // Time by which the due times have been moved, for one cause. Each whole interval of it is a pass
  // that was never made. The rest is kept for the next time.
  class LostTime {
   public:
    // Adds a shift. Returns the number of passes that it completes.
    std::uint64_t missed(Clock::Duration shift, std::uint64_t interval_usec);

   private:
    std::uint64_t usec_ = 0;  // less than an interval
  };

  std::uint64_t interval_usec_;
  PassLedger& ledger_;
  Clock::TimePoint due_;  // of the pass that was made last
  LostTime asleep_;
  LostTime overrun_;
};

}  // namespace tev::events::multipath
