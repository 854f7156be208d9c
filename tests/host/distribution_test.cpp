#include "host/distribution.h"

#include <gtest/gtest.h>

namespace tev::host {
namespace {

TEST(Distribution, TellsQuantilesToWithinAThousandth) {
  Distribution empty;
  EXPECT_EQ(empty.quantile(0.5), 0u);
  EXPECT_EQ(empty.mean(), 0);

  // 1, 2, 4 ... 2^63, a thousand of each, and a few on either side of a bin's end.
  for (int bits = 0; bits < 64; ++bits) {
    Distribution one;
    const std::uint64_t value = std::uint64_t{1} << bits;
    for (const std::uint64_t around : {value - 1, value, value + value / 3}) one.add(around);
    for (const auto& [share, expected] :
         {std::pair{0.1, value - 1}, {0.5, value}, {1.0, value + value / 3}}) {
      const auto found = one.quantile(share);
      EXPECT_GE(found, expected) << bits;
      EXPECT_LE(found - expected, expected / 1000) << bits;
    }
    EXPECT_EQ(one.max(), value + value / 3);
  }

  Distribution many;
  for (std::uint64_t i = 1; i <= 10'000; ++i) many.add(i);
  EXPECT_EQ(many.count(), 10'000u);
  EXPECT_DOUBLE_EQ(many.mean(), 5000.5);
  EXPECT_NEAR(static_cast<double>(many.quantile(0.99)), 9900, 10);
}

}  // namespace
}  // namespace tev::host
