#include "host/timing/distribution.h"

#include <gtest/gtest.h>

#include <utility>

namespace tev::host {
namespace {

TEST(Distribution, TellsQuantilesToWithinAThousandth) {
  EXPECT_EQ(Distribution().quantile(0.5), 0u);
  // Values on both sides of each boundary between sizes of bins.
  for (int bits = 0; bits < 64; ++bits) {
    Distribution one;
    const std::uint64_t value = std::uint64_t{1} << bits;
    const std::uint64_t most = value + value / 3;
    for (const std::uint64_t around : {value - 1, value, most}) one.add(around);
    for (const auto& [share, expected] : {std::pair{0.1, value - 1}, {0.5, value}, {1.0, most}}) {
      const auto found = one.quantile(share);
      EXPECT_GE(found, expected) << bits;
      EXPECT_LE(found - expected, expected / 1000) << bits;
    }
  }
}

}  // namespace
}  // namespace tev::host
