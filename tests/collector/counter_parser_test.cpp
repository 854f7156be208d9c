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
    bool ambiguous = false;
  };
  const Row rows[] = {
      {"  rx \t,\v a, b  ", "rx", "a, b", -1},
      {"rx, received, plane  3  ", "rx", "received, plane  3", 3},
      {"x, plane 300", "x", "plane 300", 44},
      {"x, plane 18446744073709551615", "x", "plane 18446744073709551615", 255},
      {"x, biplane 2", "x", "biplane 2", 2},
      {"x, plane 1 of plane 2", "x", "plane 1 of plane 2", 2},
      {"x, on plane 1 or 2", "x", "on plane 1 or 2", -1, true},
      {"x, plane -1", "x", "plane -1", -1, true},
      {"x, Plane 1", "x", "Plane 1", -1},
      {"x, plane ", "x", "plane", -1},  // trimmed: there is no blank after the word
      {"x, plane1", "x", "plane1", -1},
      {" rx plane 1 ", " rx plane 1 ", " rx plane 1 ", -1},
      {"", "", "", -1},
      {",", "", "", -1},
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
    test::Texts warnings;
    if (row.ambiguous)
      warnings = {std::string("[multipath] Counter 'x' has ambiguous description: '") +
                  row.description + "'. expected to get plane number at the end"};
    EXPECT_EQ(log.texts(TEV_LEVEL_WARNING), warnings);
  }
  EXPECT_THROW(parsed({"x, plane 18446744073709551616"}), std::out_of_range);
}

TEST(CounterParser, CountsAndListsByNameAcrossPlanes) {
  const test::CapturedLog log;
  const auto slot = parsed({
      "tx, sent, plane 1",  // first seen in plane 1, and not counted there
      "errors, errors",
      "tx, sent first, plane 0",
      "rtt, round trip plane 0",  // no comma before the word: cut and trimmed
      "rtt, round trip plane 1",
      "far, away, plane 3",  // not in plane 0: listed all the same
      "drops, drops",
  });
  EXPECT_EQ(slot.device_counter_names, (std::vector<std::string>{"errors", "drops"}));
  EXPECT_EQ(slot.plane_counter_names, (std::vector<std::string>{"tx", "rtt", "far"}));
  EXPECT_EQ(slot.plane_counter_descriptions,
            (std::vector<std::string>{"sent", "round trip", "away"}));
  EXPECT_EQ(slot.counters[4].index, 4u);
  EXPECT_TRUE(log.contains(
      6, "[multipath] Parsed 7 counters: 2 device counters, 2 per-plane counters, 4 planes"));
  EXPECT_TRUE(log.contains(7, "[multipath] Counter 'tx' is per-plane counter for plane 1"));
}

}  // namespace
}  // namespace tev::events::multipath
