// One field of one series, sample by sample.
#pragma once

#include <cstdint>
#include <optional>

#include "host/figures/field_kind.h"

namespace tev::host {

// The time from one sample of a series to the next, which is the same for all of its fields.
struct SampleTime {
  std::uint64_t now_usec = 0;
  std::uint64_t elapsed_usec = 0;  // since the previous sample; 0: not known
  double per_usec = 0;             // 1 / elapsed_usec, or 0
  // The previous read may have been slow: its values may be newer than its time stamp, by up to
  // elapsed_usec.
  bool after_slow_read = false;

  static SampleTime after(std::uint64_t previous_usec, std::uint64_t now_usec) {
    if (now_usec <= previous_usec) return {now_usec, 0, 0};  // the clock was stepped back
    const std::uint64_t elapsed = now_usec - previous_usec;
    return {now_usec, elapsed, 1 / static_cast<double>(elapsed)};
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
  Track(unsigned bits, KindJudge& judge)
      : judge_(&judge), half_range_(std::uint64_t{1} << (bits - 1)), is_32_bits_(bits == 32) {}

  void sample(std::uint64_t value, const SampleTime& time);

  FieldKind kind() const { return judge_->kind(); }
  bool counts() const { return kind() == FieldKind::counter || kind() == FieldKind::increase; }

  std::uint64_t value() const { return value_; }

  // Whether any sample differed from the first. An increase has moved when it was not 0.
  bool hasMoved() const { return moved_; }

  // The last step. Without meaning for a gauge.
  StepState step() const { return step_state_; }
  std::uint64_t increase() const { return increase_; }  // 0 unless the step is known

  // The sum of all known steps. A lower bound when there were unknown steps.
  std::uint64_t total() const { return total_; }
  std::uint64_t unknownSteps() const { return unknown_; }

  // The time that the known steps took.
  std::uint64_t knownUsec() const { return known_usec_; }

  // What the last sample took back of the step before it, which was counted as known.
  struct TakenBack {
    std::uint64_t increase = 0;
    std::uint64_t usec = 0;  // 0: nothing was taken back
  };
  const TakenBack& takenBack() const { return taken_back_; }

  // The largest known step, and the highest rate of a known step.
  std::uint64_t largestStep() const { return largest_; }
  double highestPerSecond() const { return highest_per_usec_ * 1e6; }

  // The number of steps that were too large to be told from a decrease.
  std::uint64_t ambiguousSteps() const { return ambiguous_; }

  std::uint64_t halfRange() const { return half_range_; }
  unsigned bits() const { return is_32_bits_ ? 32 : 64; }

 private:
  void loseTrack();
  void reconsider(const SampleTime& time);
  void count(std::uint64_t raw_step, const SampleTime& time);
  void gatherEvidence(std::uint64_t raw_step, const SampleTime& time);

  KindJudge* judge_;
  std::uint64_t half_range_;
  std::uint64_t value_ = 0;
  std::uint64_t increase_ = 0;
  std::uint64_t total_ = 0;
  std::uint64_t known_usec_ = 0;
  std::uint64_t largest_ = 0;
  double highest_per_usec_ = 0;
  double recent_per_usec_ = 0;  // the highest rate of the last steps, which fades
  // Before the last step.
  double highest_before_ = 0;
  double recent_before_ = 0;
  std::uint64_t step_usec_ = 0;  // the time of the last known step
  TakenBack taken_back_;
  KindJudge::Changes changes_;
  std::uint32_t unknown_ = 0;
  std::uint32_t ambiguous_ = 0;
  StepState step_state_ = StepState::none;
  bool started_ = false;
  bool moved_ = false;
  bool is_32_bits_;
};

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
