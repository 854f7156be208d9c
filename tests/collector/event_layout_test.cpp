#include "collector/event_layout.h"

#include <gtest/gtest.h>

#include <numeric>

#include "collector/counter_parser.h"
#include "collector/event_buffer.h"

namespace tev::events::multipath {
namespace {

const std::string kName = "a name of some length";
const std::string kPaddedName = kName + std::string(2, '\0');

// Each event has its counters in their order. Counters beyond the fields are dropped, and missing
// counters are zero.
void expectCountersInOrder(const SlotInfo& slot, bool of_planes) {
  const auto layout =
      (of_planes ? EventLayout::ofPlane : EventLayout::ofDevice)(slot, kName, kPaddedName.size());
  std::vector<std::uint32_t> values(slot.counters.size());
  std::iota(values.begin(), values.end(), 0x01020301);
  EventBuffer sample(layout.size(), layout.eventsPerSample());
  layout.write(values.data(), sample.append(layout.eventsPerSample(), 1));
  for (std::uint32_t plane = 0; plane < layout.eventsPerSample(); ++plane) {
    std::string expected = kPaddedName;
    if (of_planes) expected += static_cast<char>(plane);
    for (const auto& counter : slot.counters)
      if (counter.is_per_plane == of_planes && counter.plane == plane)
        expected.append(reinterpret_cast<const char*>(&values[counter.index]), sizeof values[0]);
    expected.resize(layout.size());
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(sample.at(plane)), layout.size()), expected)
        << plane;
  }
}

TEST(EventLayout, PlanesUnlikeTheFirstAreFittedToIt) {
  struct Row {
    std::string counters;   // of one letter each, with the plane; '-' is of the device
    std::size_t described;  // fields of a plane's event for counters
    std::size_t room;       // counters in a plane's event
    std::vector<std::uint32_t> differing;
  };
  const std::string run = "x-x-x-x-x-x-x-x-x-x-x-x-x-x-x-x-x-x-x-x-";
  const Row rows[] = {
      {run + "a0" + run + "b0", 2, 2, {}},
      {"x-a0y-a1z-a0t-a1u-", 1, 2, {0, 1}},
      {"a0b1c1d2e1f1g1y-z-h2", 1, 1, {1, 2}},
      {"a0b0a1a2b2c2", 2, 2, {1, 2}},
      {"b1a1a0b0", 2, 2, {0}},  // the counters are described in the order of plane 1
      {"a0a0", 1, 2, {0}},      // a repeated name does not describe another counter
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.counters);
    SlotInfo slot;
    for (std::size_t i = 0; i < row.counters.size(); i += 2) {
      slot.counter_infos.push_back(row.counters.substr(i, 1) + ", text");
      if (row.counters[i + 1] != '-')
        slot.counter_infos.back().append(", plane ").append(1, row.counters[i + 1]);
    }
    parseCounters(slot);
    expectCountersInOrder(slot, false);
    expectCountersInOrder(slot, true);
    const auto layout = EventLayout::ofPlane(slot, kName, kPaddedName.size());
    EXPECT_EQ(layout.fields().size(), 2 + row.described);
    EXPECT_EQ(layout.size(), kPaddedName.size() + 1 + 4 * row.room);
    EXPECT_EQ(layout.differingPlanes(), row.differing);
  }
}

}  // namespace
}  // namespace tev::events::multipath
