#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace tev::host {

// The largest number of the last seconds: a ring with the largest number of each second. Looking at
// it changes nothing, so any number of readers see the same.
class RecentPeak {
 public:
  // `seconds` are covered completely, beside the second that has begun.
  explicit RecentPeak(std::size_t seconds) : seconds_(seconds) {}

  void add(std::uint64_t second, double number) {
    if (slots_.empty()) slots_.resize(seconds_ + 1);
    Slot& slot = slots_[second % slots_.size()];
    if (slot.second != second) slot = {second, number};
    slot.largest = std::max(slot.largest, number);
  }

  // Nothing when these seconds do not have a number.
  std::optional<double> at(std::uint64_t now_second) const {
    std::optional<double> largest;
    for (const Slot& slot : slots_)
      if (slot.second <= now_second && now_second - slot.second <= seconds_)
        largest = std::max(largest.value_or(slot.largest), slot.largest);
    return largest;
  }

 private:
  struct Slot {
    std::uint64_t second = 0;  // since the Unix epoch; 0: nothing yet
    double largest = 0;
  };

  std::size_t seconds_;
  std::vector<Slot> slots_;  // empty until the first number
};

}  // namespace tev::host
