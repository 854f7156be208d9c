// Whether a field counts up. The schema does not always say so; then the samples decide.
#pragma once

#include <cstdint>

namespace tev::host {

enum class FieldKind : std::uint8_t {
  undecided,  // has neither a rate nor a sum
  counter,
  gauge,
  increase,  // each sample is the increase since the previous one
};

// "undecided", "counter", "gauge" or "increase".
const char* nameOf(FieldKind kind);

// Decides the kind of a field from the samples of all of its series. The decision is final.
//
// A field is a gauge when a series has fallen twice, and at least one in eight of its changes is a
// fall. It is a counter when it rises and does not fall: at least three times, over at least five
// seconds, in one series. A single rise is sufficient for a field whose text says bytes or packets.
class KindJudge {
 public:
  // The changes of one series.
  struct Changes {
    std::uint32_t rises = 0;
    std::uint32_t falls = 0;
    std::uint64_t begin_usec = 0;  // time stamp of the sample before the first change
  };

  // `known` is final unless it is `undecided`.
  KindJudge(FieldKind known, bool text_says_counter)
      : kind_(known), text_says_counter_(text_says_counter) {}

  FieldKind kind() const { return kind_; }

  // A larger fall may just as well be a step forward, and a larger rise a step back. A field whose
  // text says that it is a counter needs better evidence against it.
  std::uint64_t largestFall(std::uint64_t half_range) const {
    return text_says_counter_ ? half_range / 32 : half_range / 2;
  }
  std::uint64_t largestRise(std::uint64_t half_range) const {
    return text_says_counter_ ? half_range : half_range / 2;
  }

  // To be called after each change of a series, unless the kind is decided. `rose` is that change.
  void judge(const Changes& series, bool rose, std::uint64_t now_usec);

 private:
  FieldKind kind_;
  bool text_says_counter_;
  std::uint64_t rises_ = 0;  // of all series
  std::uint64_t falls_ = 0;
};

}  // namespace tev::host
