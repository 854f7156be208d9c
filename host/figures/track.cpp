#include "host/figures/track.h"

namespace tev::host {

void Track::sampleUnusual(std::uint64_t value, SampleTime time) {
  std::uint64_t raw_step = value - value_;
  if (is_32_bits_) raw_step = static_cast<std::uint32_t>(raw_step);
  value_ = value;
  if (!started_) {
    started_ = true;
    changes_.begin_usec = time.now_usec;
    return;
  }
  is_steady_ = false;
  if (kind() == FieldKind::increase) raw_step = value;
  moved_ |= raw_step != 0;
  if (kind() == FieldKind::gauge) {
    is_gauge_ = true;
    step_state_ = StepState::none;
    return;
  }
  if (time.after_slow_read && step_state_ == StepState::known) reconsider(time);
  if (kind() == FieldKind::undecided) gatherEvidence(raw_step, time.now_usec);
  if (!isFollowed(raw_step, time)) {
    loseTrack(raw_step);
    return;
  }
  count(raw_step, static_cast<double>(raw_step) * time.per_usec, time.elapsed_usec);
  step_state_ = StepState::known;
  is_steady_ = is_32_bits_ && kind() == FieldKind::counter;
}

bool Track::isFollowed(std::uint64_t raw_step, const SampleTime& time) const {
  if (kind() == FieldKind::increase) return true;
  return raw_step < halfRange() && time.elapsed_usec > 0 &&
         recent_per_usec_ * time.elapsed < static_cast<double>(halfRange());
}

void Track::loseTrack(std::uint64_t raw_step) {
  const std::uint64_t fall = 2 * halfRange() - raw_step;  // modulo 2^64
  if (raw_step >= halfRange()) ambiguous_ += fall > judge_->largestFall(halfRange());
  step_state_ = StepState::unknown;
  increase_ = 0;
  highest_before_ = std::max(highest_before_, per_usec_);
  per_usec_ = 0;
  ++unknown_;
}

// The last step may have taken as long as until now. Its rate is then not known; and if the counter
// may have moved by half of its range in that time, neither is the step.
void Track::reconsider(const SampleTime& time) {
  per_usec_ = 0;
  recent_per_usec_ = recent_before_;
  const double possible =
      recent_before_ * static_cast<double>(time.previous_elapsed_usec + time.elapsed_usec);
  if (kind() == FieldKind::increase || possible < static_cast<double>(halfRange())) return;
  total_ -= increase_;
  known_usec_ -= time.previous_elapsed_usec;
  ++unknown_;
}

void Track::gatherEvidence(std::uint64_t raw_step, std::uint64_t now_usec) {
  const std::uint64_t fall = 2 * halfRange() - raw_step;  // modulo 2^64
  const bool rose = raw_step < halfRange();
  if (raw_step == 0) {
    if (changes_.rises + changes_.falls == 0) changes_.begin_usec = now_usec;
    return;
  }
  if (rose ? raw_step > judge_->largestRise(halfRange()) : fall > judge_->largestFall(halfRange()))
    return;
  ++(rose ? changes_.rises : changes_.falls);
  judge_->judge(changes_, rose, now_usec);
}

std::optional<double> perSecondSince(const TrackMark& mark, const Track& track) {
  if (!track.counts() || track.knownUsec() <= mark.known_usec || track.total() < mark.total)
    return std::nullopt;
  return static_cast<double>(track.total() - mark.total) * 1e6 /
         static_cast<double>(track.knownUsec() - mark.known_usec);
}

}  // namespace tev::host
