// The distribution of values, with a relative error below 1/8000, in bounded memory.
#pragma once

#include <cstdint>
#include <vector>

namespace tev::host {

class Distribution {
 public:
  void add(std::uint64_t value);

  std::uint64_t count() const { return count_; }
  std::uint64_t max() const { return max_; }
  double mean() const { return count_ == 0 ? 0 : sum_ / static_cast<double>(count_); }

  // The value that `share` (0 to 1) of all values do not exceed; 0 when there are none.
  std::uint64_t quantile(double share) const;

 private:
  std::vector<std::uint64_t> bins_;
  std::uint64_t count_ = 0;
  std::uint64_t max_ = 0;
  double sum_ = 0;
};

}  // namespace tev::host
