#include "collector/counter_parser.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/support/captured_log.h"

namespace tev::events::multipath {
namespace {

SlotInfo parsed(std::vector<std::string> lines) {
  SlotInfo slot;
  slot.num_counters = static_cast<std::uint32_t>(lines.size());
  slot.counter_infos = std::move(lines);
  parseCounters(slot);
  return slot;
}

TEST(CounterParser, UnderstandsOneLine) {
  struct Row {
    const char* line;
    const char* name;
    const char* description;
    int plane;  // -1: a device counter
    bool ambiguous;
  };
  const Row rows[] = {
      {"rx_pkts, received packets", "rx_pkts", "received packets", -1, false},
      {"  rx \t,\v a, b  ", "rx", "a, b", -1, false},
      {"rx, received, plane 3", "rx", "received, plane 3", 3, false},
      {"rx, received, plane  3  ", "rx", "received, plane  3", 3, false},
      {"x, plane 300", "x", "plane 300", 44, false},
      {"x, plane 007", "x", "plane 007", 7, false},
      {"x, biplane 2", "x", "biplane 2", 2, false},
      {"x, plane 1 of plane 2", "x", "plane 1 of plane 2", 2, false},
      {"x, plane two", "x", "plane two", -1, true},
      {"x, on plane 1 or 2", "x", "on plane 1 or 2", -1, true},
      {"x, plane -1", "x", "plane -1", -1, true},
      {"x, plane +1", "x", "plane +1", -1, true},
      {"x, plane 2, plane x", "x", "plane 2, plane x", -1, true},
      {"x, Plane 1", "x", "Plane 1", -1, false},
      {"x, plane", "x", "plane", -1, false},  // trimmed: there is no blank after the word
      {"x, plane1", "x", "plane1", -1, false},
      {" no comma, ", "no comma", "", -1, false},
      {" all of it, plane 1", "all of it", "plane 1", 1, false},
      {" rx plane 1 ", " rx plane 1 ", " rx plane 1 ", -1, false},
      {"", "", "", -1, false},
      {",", "", "", -1, false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.line);
    const test::CapturedLog log;
    const auto slot = parsed({row.line});
    ASSERT_EQ(slot.counters.size(), 1u);
    const auto& counter = slot.counters[0];
    EXPECT_EQ(counter.name, row.name);
    EXPECT_EQ(counter.description, row.description);
    EXPECT_EQ(counter.is_per_plane, row.plane >= 0);
    EXPECT_EQ(counter.plane, row.plane < 0 ? 0 : row.plane);
    EXPECT_EQ(slot.num_planes, static_cast<std::uint32_t>(row.plane + 1));
    EXPECT_EQ(log.texts(TEV_LEVEL_WARNING).size(), row.ambiguous ? 1u : 0u);
  }
}

TEST(CounterParser, CountsAndListsByNameAcrossPlanes) {
  const test::CapturedLog log;
  const auto slot = parsed({
      "tx, sent, plane 1",  // first seen in plane 1, and not counted there
      "errors, errors",
      "tx, sent first, plane 0",
      "rtt, round trip plane 0",  // no comma before the word: cut and trimmed
      "rtt, round trip plane 1",
      "drops, drops",
  });
  EXPECT_EQ(slot.num_device_counters, 2u);
  EXPECT_EQ(slot.num_plane_counters, 2u);
  EXPECT_EQ(slot.num_planes, 2u);
  EXPECT_EQ(slot.device_counter_names, (std::vector<std::string>{"errors", "drops"}));
  EXPECT_EQ(slot.plane_counter_names, (std::vector<std::string>{"tx", "rtt"}));
  EXPECT_EQ(slot.plane_counter_descriptions, (std::vector<std::string>{"sent", "round trip"}));
  EXPECT_EQ(slot.counters[4].index, 4u);
  EXPECT_TRUE(log.contains(
      6, "[multipath] Parsed 6 counters: 2 device counters, 2 per-plane counters, 2 planes"));
  EXPECT_TRUE(log.contains(7, "[multipath] Counter 'tx' is per-plane counter for plane 1"));
}

TEST(CounterParser, APlaneWithoutPlaneZeroIsListedButNotCounted) {
  const auto slot = parsed({"rx_pkts, received packets, plane 3"});
  EXPECT_EQ(slot.num_planes, 4u);
  EXPECT_EQ(slot.num_plane_counters, 0u);
  EXPECT_EQ(slot.plane_counter_names, (std::vector<std::string>{"rx_pkts"}));
  EXPECT_EQ(slot.plane_counter_descriptions, (std::vector<std::string>{"received packets"}));
}

TEST(CounterParser, APlaneNumberBeyondUnsignedLongThrows) {
  EXPECT_THROW(parsed({"x, plane 18446744073709551616"}), std::out_of_range);
  EXPECT_EQ(parsed({"x, plane 18446744073709551615"}).counters[0].plane, 255);
}

}  // namespace
}  // namespace tev::events::multipath
