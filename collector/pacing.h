#pragma once

#include <cstdint>
#include <optional>

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
//
// Several threads share a grid: whole intervals from one origin. The due times then return to the
// grid after the first pass and after each restart, at the first point of the grid that is at least
// half an interval after the beginning of the pass.
class Pacing {
 public:
  // The first pass is due at `first`. Interval 0: each pass is due when the one before it ends.
  // Overruns, late wake-ups and the missed passes are counted in `ledger`. Without `origin`, there
  // is no grid.
  Pacing(Clock::TimePoint first, std::uint64_t interval_usec, PassLedger& ledger,
         std::optional<Clock::TimePoint> origin = {})
      : interval_usec_(interval_usec),
        interval_(after({}, interval_usec) - Clock::TimePoint{}),
        ledger_(ledger),
        origin_(origin),
        due_(first) {
    if (origin) cause_ = nullptr;
  }

  // The due time of the pass that follows a pass with this beginning and end. Clock::kNever when
  // the clock's type cannot represent it.
  Clock::TimePoint next(Clock::TimePoint began, Clock::TimePoint ended);

 private:
  // Time by which the due times have been moved, for one cause. Each whole interval of it is a pass
  // that was never made. The rest is kept for the next time.
  struct LostTime {
    SharedNumber& missed;    // passes
    Clock::Duration rest{};  // less than an interval; negative before a return to the grid

    void add(Clock::Duration shift, Clock::Duration interval);
  };

  Clock::TimePoint firstOfGrid(Clock::TimePoint from) const;

  std::uint64_t interval_usec_;
  Clock::Duration interval_;  // the same, or the longest that the clock's type can represent
  PassLedger& ledger_;
  std::optional<Clock::TimePoint> origin_;
  Clock::TimePoint due_;  // of the pass that was made last
  LostTime asleep_{ledger_.missed_by_late_wakeup};
  LostTime overrun_{ledger_.missed_by_overrun};
  LostTime* cause_ = &asleep_;  // of a restart after this pass; null: a first return to the grid
};

}  // namespace tev::events::multipath
