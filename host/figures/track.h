// One field of one series, sample by sample.
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>

#include "host/figures/field_kind.h"

namespace tev::host {

// The time from one sample of a series to the next, which is the same for all of its fields.
struct SampleTime {
  std::uint64_t now_usec = 0;
  std::uint64_t elapsed_usec = 0;  // since the previous sample; 0: not known
  double elapsed = 0;              // elapsed_usec
  double per_usec = 0;             // 1 / elapsed_usec, or 0
  // The previous read may have been slow: its values may be newer than its time stamp, by up to
  // elapsed_usec.
  bool after_slow_read = false;
  std::uint64_t previous_elapsed_usec = 0;  // of the previous sample

  static SampleTime after(std::uint64_t previous_usec, std::uint64_t now_usec) {
    SampleTime time{.now_usec = now_usec};
    if (now_usec <= previous_usec) return time;  // the clock was stepped back
    time.elapsed_usec = now_usec - previous_usec;
    time.elapsed = static_cast<double>(time.elapsed_usec);
    time.per_usec = 1 / time.elapsed;
    return time;
  }

  // The same after a sample that came `step_usec` after the one before it; 0: not known. The read
  // of that sample may have been slow when the next one comes later than samples usually do:
  // `interval_usec` after each other, or 0 when this is not known.
  static SampleTime after(std::uint64_t previous_usec, std::uint64_t step_usec,
                          std::uint64_t interval_usec, std::uint64_t now_usec) {
    SampleTime time = after(previous_usec, now_usec);
    time.previous_elapsed_usec = step_usec;
    const std::uint64_t usual = interval_usec > 0 ? interval_usec : 2 * step_usec;
    time.after_slow_read = usual > 0 && time.elapsed_usec > usual + usual / 2;
    return time;
  }
};

// The last step of a track: the increase from the previous sample to this one.
enum class StepState : std::uint8_t {
  none,  // the first sample of a counter
  known,
  unknown,  // the counter may have moved by half of its range or more, or was reset
};

// Follows an unsigned number of 32 or 64 bits.
//
// A step of a counter is known when the counter cannot have moved by half of its range since the
// previous sample, by the rate that it had and by the time that has passed, and when it did not
// decrease. An unknown step does not change the total. A slow read is known only at the next
// sample, which then takes back what it cannot confirm.
class Track {
 public:
  // `judge` is the field's and must outlive this.
  Track(unsigned bits, KindJudge& judge) : is_32_bits_(bits == 32), judge_(&judge) {}

  // Of a gauge, only the value is followed, and whether it has moved.
  void sample(std::uint64_t value, const SampleTime& time);

  FieldKind kind() const { return judge_->kind(); }
  bool counts() const { return kind() == FieldKind::counter || kind() == FieldKind::increase; }

  std::uint64_t value() const { return value_; }

  // Whether any sample differed from the first. An increase has moved when it was not 0.
  bool hasMoved() const { return moved_ || largest_ > 0; }

  // The last step. Without meaning for a gauge.
  StepState step() const { return step_state_; }
  // 0 unless the step is known.
  std::uint64_t increase() const { return increase_; }
  double perUsec() const { return per_usec_; }

  // The sum of all known steps. A lower bound when there were unknown steps.
  std::uint64_t total() const { return total_; }
  std::uint64_t unknownSteps() const { return unknown_; }

  // The time that the known steps took.
  std::uint64_t knownUsec() const { return known_usec_; }

  // The largest known step, and the highest rate of a known step.
  std::uint64_t largestStep() const { return largest_; }
  double highestPerSecond() const { return std::max(highest_before_, per_usec_) * 1e6; }

  // The number of steps that were too large to be told from a decrease.
  std::uint64_t ambiguousSteps() const { return ambiguous_; }

  std::uint64_t halfRange() const { return std::uint64_t{1} << (bits() - 1); }
  unsigned bits() const { return is_32_bits_ ? 32 : 64; }

 private:
  void sampleUnusual(std::uint64_t value, SampleTime time);
  void reconsider(const SampleTime& time);
  void gatherEvidence(std::uint64_t raw_step, std::uint64_t now_usec);
  bool isFollowed(std::uint64_t raw_step, const SampleTime& time) const;
  void count(std::uint64_t step, double per_usec, std::uint64_t elapsed_usec);
  void loseTrack(std::uint64_t raw_step);

  static constexpr double kFading = 15.0 / 16;  // of the recent rate, per sample

  // Each sample of a counter uses these.
  std::uint64_t value_ = 0;
  std::uint64_t increase_ = 0;
  std::uint64_t total_ = 0;
  std::uint64_t known_usec_ = 0;
  double per_usec_ = 0;
  double recent_per_usec_ = 0;  // the highest rate of the last steps, which fades
  double recent_before_ = 0;    // before the last step
  double highest_before_ = 0;   // the highest rate before the last step
  std::uint64_t largest_ = 0;
  StepState step_state_ = StepState::none;
  bool is_steady_ = false;  // a counter of 32 bits whose last step is known
  bool is_gauge_ = false;   // and has a sample
  bool started_ = false;
  bool moved_ = false;  // apart from known steps
  bool is_32_bits_;

  std::uint32_t unknown_ = 0;
  std::uint32_t ambiguous_ = 0;
  KindJudge::Changes changes_;
  KindJudge* judge_;
};

// The usual samples take a short way. All others are judged in sampleUnusual(), which gets a copy
// of the time so that the caller can keep its own in registers.
inline void Track::sample(std::uint64_t value, const SampleTime& time) {
  const auto step = static_cast<std::uint32_t>(value - value_);
  if (is_steady_ && !time.after_slow_read && time.elapsed_usec > 0 && step <= INT32_MAX &&
      recent_per_usec_ * time.elapsed < 0x1p31) {
    count(step, static_cast<std::int32_t>(step) * time.per_usec, time.elapsed_usec);
    value_ = value;
  } else if (is_gauge_) {
    moved_ |= value != value_;
    value_ = value;
  } else {
    sampleUnusual(value, time);
  }
}

inline void Track::count(std::uint64_t step, double per_usec, std::uint64_t elapsed_usec) {
  highest_before_ = std::max(highest_before_, per_usec_);
  recent_before_ = recent_per_usec_;
  increase_ = step;
  per_usec_ = per_usec;
  total_ += step;
  known_usec_ += elapsed_usec;
  if (step > largest_) largest_ = step;
  recent_per_usec_ = std::max(per_usec, recent_per_usec_ * kFading);
}

// The total of a track at some time, from which the rate since then is computed.
struct TrackMark {
  std::uint64_t total = 0;
  std::uint64_t known_usec = 0;
  std::uint64_t unknown = 0;

  static TrackMark of(const Track& track) {
    return {track.total(), track.knownUsec(), track.unknownSteps()};
  }
};

// Increase per second since the mark, over the time of the known steps. Nothing when there were
// none, or when the field does not count.
std::optional<double> perSecondSince(const TrackMark& mark, const Track& track);

}  // namespace tev::host
