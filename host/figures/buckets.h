// The distribution of unsigned numbers in constant memory, with a relative error of at most 1/64.
#pragma once

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <vector>

namespace tev::host {

class Buckets {
 public:
  // For numbers of 32 or 64 bits.
  explicit Buckets(unsigned bits) : bits_(bits) {}

  void add(std::uint64_t value) {
    if (counts_.empty()) counts_.resize(std::size_t{bits_ + 1 - kStepBits} << kStepBits);
    ++counts_[indexOf(value)];
  }
  void clear() { std::ranges::fill(counts_, 0); }

  // The value that the share `q` (above 0, at most 1) of `count` numbers does not exceed, by
  // nearest rank: the number at position ceil(q * count) in order, rounded to the middle of its
  // bucket.
  std::uint64_t quantile(double q, std::uint64_t count) const {
    const auto rank = static_cast<std::uint64_t>(std::ceil(q * static_cast<double>(count)));
    std::uint64_t seen = 0;
    for (std::size_t i = 0; i < counts_.size(); ++i)
      if ((seen += counts_[i]) >= rank && seen > 0) return middleOf(i);
    return 0;
  }

 private:
  static constexpr unsigned kStepBits = 5;  // 32 steps per power of two

  static std::size_t indexOf(std::uint64_t value) {
    const auto width = static_cast<unsigned>(std::bit_width(value));
    if (width <= kStepBits) return value;
    const unsigned shift = width - kStepBits - 1;
    return (std::size_t{shift} << kStepBits) + (value >> shift);
  }

  static std::uint64_t middleOf(std::size_t index) {
    if (index < (std::size_t{2} << kStepBits)) return index;
    const auto shift = static_cast<unsigned>(index >> kStepBits) - 1;
    const std::uint64_t lowest = (index - (std::size_t{shift} << kStepBits)) << shift;
    return lowest + ((std::uint64_t{1} << shift) - 1) / 2;
  }

  unsigned bits_;
  std::vector<std::uint32_t> counts_;  // empty before the first number
};

}  // namespace tev::host
