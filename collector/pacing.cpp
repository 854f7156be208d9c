#include "collector/pacing.h"

#include <chrono>

namespace tev::events::multipath {

Clock::TimePoint Pacing::next(Clock::TimePoint began, Clock::TimePoint ended) {
  if (interval_usec_ == 0) return due_ = ended;

  const auto earliest = after(began, interval_usec_ / 2);
  if (began > after(due_, interval_usec_ / 2)) ledger_.late_wakeups.add(1);

  const Clock::TimePoint regular = after(due_, interval_usec_);
  if (ended >= after(began, interval_usec_)) {
    ledger_.overrun_passes.add(1);
    asleep_.add(began - due_, interval_);
    overrun_.add(ended - after(began, interval_usec_), interval_);
    if (origin_) cause_ = &overrun_;
    return due_ = ended;
  }

  due_ = regular;
  if (origin_)
    due_ = firstOfGrid(earliest);
  else if (regular < earliest)
    due_ = after(began, interval_usec_);
  if (cause_ && due_ != regular) cause_->add(due_ - regular, interval_);
  cause_ = &asleep_;
  return due_;
}

// The first point of the grid that is not before `from`, which is not before the origin.
Clock::TimePoint Pacing::firstOfGrid(Clock::TimePoint from) const {
  const auto since = std::chrono::ceil<std::chrono::microseconds>(from - *origin_).count();
  const auto usec = static_cast<std::uint64_t>(since);
  const std::uint64_t intervals = usec / interval_usec_ + (usec % interval_usec_ != 0);
  if (intervals > UINT64_MAX / interval_usec_) return Clock::kNever;
  return after(*origin_, intervals * interval_usec_);
}

void Pacing::LostTime::add(Clock::Duration shift, Clock::Duration interval) {
  rest += shift;
  if (rest < interval) return;
  missed.add(static_cast<std::uint64_t>(rest / interval));
  rest %= interval;
}

}  // namespace tev::events::multipath
