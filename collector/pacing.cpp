#include "collector/pacing.h"

#include <algorithm>
#include <chrono>

namespace tev::events::multipath {

Clock::TimePoint Pacing::next(Clock::TimePoint began, Clock::TimePoint ended) {
  if (interval_usec_ == 0) return due_ = ended;

  const auto half_usec = interval_usec_ / 2;
  if (began > after(due_, half_usec)) ledger_.late_wakeups.add(1);

  if (ended >= after(began, interval_usec_)) {
    ledger_.overrun_passes.add(1);
    ledger_.missed_by_late_wakeup.add(asleep_.missed(began - due_, interval_usec_));
    const auto interval = after(began, interval_usec_) - began;
    ledger_.missed_by_overrun.add(overrun_.missed(ended - began - interval, interval_usec_));
    return due_ = ended;
  }

  const Clock::TimePoint next = after(due_, interval_usec_);
  if (next >= after(began, half_usec)) return due_ = next;
  ledger_.missed_by_late_wakeup.add(asleep_.missed(began - due_, interval_usec_));
  return due_ = after(began, interval_usec_);
}

std::uint64_t Pacing::LostTime::missed(Clock::Duration shift, std::uint64_t interval_usec) {
  using std::chrono::microseconds;
  usec_ += static_cast<std::uint64_t>(
      std::max<std::int64_t>(std::chrono::duration_cast<microseconds>(shift).count(), 0));
  const std::uint64_t intervals = usec_ / interval_usec;
  usec_ %= interval_usec;
  return intervals;
}

}  // namespace tev::events::multipath
