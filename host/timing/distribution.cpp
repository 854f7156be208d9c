#include "host/timing/distribution.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace tev::host {
namespace {

// Each value below 2^kBits has a bin of its own. Above, values with the same kBits leading bits
// share a bin.
constexpr unsigned kBits = 14;

std::size_t binOf(std::uint64_t value) {
  const auto width = static_cast<unsigned>(std::bit_width(value));
  const unsigned shift = width > kBits ? width - kBits : 0;
  return (std::size_t{shift} << (kBits - 1)) + static_cast<std::size_t>(value >> shift);
}

// The largest value of a bin.
std::uint64_t endOf(std::size_t bin) {
  constexpr std::size_t kHalf = std::size_t{1} << (kBits - 1);
  const std::size_t shift = bin < 2 * kHalf ? 0 : bin / kHalf - 1;
  const std::uint64_t leading = bin - shift * kHalf;
  return (leading << shift) + ((std::uint64_t{1} << shift) - 1);
}

}  // namespace

void Distribution::add(std::uint64_t value) {
  const std::size_t bin = binOf(value);
  if (bin >= bins_.size()) bins_.resize(bin + 1);
  ++bins_[bin];
  ++count_;
  max_ = std::max(max_, value);
  sum_ += static_cast<double>(value);
}

std::uint64_t Distribution::quantile(double share) const {
  const auto wanted = static_cast<std::uint64_t>(std::ceil(share * static_cast<double>(count_)));
  std::uint64_t seen = 0;
  for (std::size_t bin = 0; bin < bins_.size(); ++bin) {
    seen += bins_[bin];
    if (bins_[bin] > 0 && seen >= wanted) return std::min(endOf(bin), max_);
  }
  return 0;
}

}  // namespace tev::host
