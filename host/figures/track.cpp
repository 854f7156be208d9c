#include "host/figures/track.h"

#include <algorithm>

namespace tev::host {
namespace {

constexpr double kFading = 15.0 / 16;  // of the recent rate, per sample

}  // namespace

void Track::sample(std::uint64_t value, const SampleTime& time) {
  std::uint64_t raw_step = value - value_;
  if (is_32_bits_) raw_step = static_cast<std::uint32_t>(raw_step);
  value_ = value;
  if (!started_) {
    started_ = true;
    changes_.begin_usec = time.now_usec;
    return;
  }
  taken_back_ = {};
  if (time.after_slow_read && step_state_ == StepState::known) reconsider(time);
  if (kind() == FieldKind::increase) raw_step = value;
  moved_ |= raw_step != 0;
  if (kind() != FieldKind::increase) {
    if (kind() == FieldKind::undecided) gatherEvidence(raw_step, time);
    if (raw_step >= half_range_) {                            // it decreased, or moved too far
      const std::uint64_t fall = 2 * half_range_ - raw_step;  // modulo 2^64
      ambiguous_ += fall > judge_->largestFall(half_range_);
      loseTrack();
      return;
    }
  }
  count(raw_step, time);
}

void Track::loseTrack() {
  step_state_ = StepState::unknown;
  increase_ = 0;
  ++unknown_;
}

// The last step may have taken as long as until now. Its rate is then not known; and if the counter
// may have moved by half of its range in that time, neither is the step.
void Track::reconsider(const SampleTime& time) {
  highest_per_usec_ = highest_before_;
  recent_per_usec_ = recent_before_;
  const double possible = recent_before_ * static_cast<double>(step_usec_ + time.elapsed_usec);
  if (kind() == FieldKind::increase || possible < static_cast<double>(half_range_)) return;
  taken_back_ = {increase_, step_usec_};
  total_ -= increase_;
  known_usec_ -= step_usec_;
  ++unknown_;
}

void Track::count(std::uint64_t raw_step, const SampleTime& time) {
  const double possible = recent_per_usec_ * static_cast<double>(time.elapsed_usec);
  const bool followed = time.elapsed_usec > 0 && possible < static_cast<double>(half_range_);
  if (!followed && kind() != FieldKind::increase) {
    loseTrack();
    return;
  }
  const double per_usec = static_cast<double>(raw_step) * time.per_usec;
  highest_before_ = highest_per_usec_;
  recent_before_ = recent_per_usec_;
  step_usec_ = time.elapsed_usec;
  highest_per_usec_ = std::max(highest_per_usec_, per_usec);
  recent_per_usec_ = std::max(per_usec, recent_per_usec_ * kFading);
  step_state_ = StepState::known;
  increase_ = raw_step;
  total_ += raw_step;
  known_usec_ += time.elapsed_usec;
  largest_ = std::max(largest_, raw_step);
}

void Track::gatherEvidence(std::uint64_t raw_step, const SampleTime& time) {
  const std::uint64_t fall = 2 * half_range_ - raw_step;  // modulo 2^64
  const bool rose = raw_step < half_range_;
  if (raw_step == 0) {
    if (changes_.rises + changes_.falls == 0) changes_.begin_usec = time.now_usec;
    return;
  }
  if (rose ? raw_step > judge_->largestRise(half_range_) : fall > judge_->largestFall(half_range_))
    return;
  ++(rose ? changes_.rises : changes_.falls);
  judge_->judge(changes_, rose, time.now_usec);
}

std::optional<double> perSecondSince(const TrackMark& mark, const Track& track) {
  if (!track.counts() || track.knownUsec() <= mark.known_usec || track.total() < mark.total)
    return std::nullopt;
  return static_cast<double>(track.total() - mark.total) * 1e6 /
         static_cast<double>(track.knownUsec() - mark.known_usec);
}

}  // namespace tev::host
