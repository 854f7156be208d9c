#include "host/events/byte_counters.h"

#include <gtest/gtest.h>

namespace tev::host {
namespace {

Column counter(const char* name, const char* description) {
  Column column;
  column.name = name;
  column.description = description;
  column.builtin_id = TEV_TYPE_UINT32;
  column.element_size = 4;
  return column;
}

TEST(ByteCounters, AreToldByTheirUnit) {
  const struct {
    const char* name;
    const char* description;
    bool counts_bytes;
  } rows[] = {
      {"tx_bytes", "transmitted bytes", true},
      {"x", "Octets received", true},
      {"port.rx_bytes_2", "", true},
      {"RxOctets", "", true},
      {"tx_packets", "transmitted packets of 64 bytes or more", false},
      {"rx_65_to_127_bytes_pkts", "", false},
      {"load", "bytes of all packets", true},
      {"tx_bits", "sent bits", false},
      {"speed", "bytes per second", false},
      {"bytes_rate", "", false},
      {"kilobytes", "bytesize", false},
      {"window_kib", "congestion window in KiB", false},
  };
  for (const auto& row : rows)
    EXPECT_EQ(countsBytes(counter(row.name, row.description)), row.counts_bytes)
        << row.name << ", " << row.description;

  Column array = counter("bytes", "");
  array.count = 2;
  EXPECT_FALSE(countsBytes(array)) << "only single numbers are counters";
}

TEST(ByteCounters, AreFollowedUpToAQuarterOfTheirRange) {
  const Column bytes = counter("bytes", "");
  Column wide = bytes;
  wide.builtin_id = TEV_TYPE_UINT64;
  wide.element_size = 8;
  // 32 bits of bytes last 85.9 ms at 400 Gbit/s.
  EXPECT_NEAR(longestSafeInterval(32, bytesPerSecond(400)).count(), 21.47e-3, 1e-5);
  EXPECT_NEAR(gbitsPerSecond(highestSafeRate(32, Seconds(1))), 8.59, 1e-2);
  EXPECT_TRUE(followsByteCounters(Seconds(0.021), 400, bytes));
  EXPECT_FALSE(followsByteCounters(Seconds(0.022), 400, bytes));
  EXPECT_TRUE(followsByteCounters(Seconds(1), 400, wide));
  EXPECT_TRUE(followsByteCounters(Seconds(1), 400, counter("packets", "")));
}

}  // namespace
}  // namespace tev::host
