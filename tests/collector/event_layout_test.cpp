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
void expectCountersInOrder(const EventLayout& layout, const SlotInfo& slot, bool of_planes) {
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

TEST(EventLayout, EveryCounterGoesWhereThereIsRoomForIt) {
  // The planes of the counters in turn; '-' is of the device.
  const std::string runs = std::string(20, '-') + "0" + std::string(20, '-') + "0";
  for (const std::string& planes : {runs, std::string("-0-1-0-1-"), std::string("0112111--2")}) {
    SlotInfo slot;
    for (const char plane : planes) {
      slot.counter_infos.push_back("c" + std::to_string(slot.counter_infos.size()) + ", text");
      if (plane != '-') slot.counter_infos.back() += std::string(", plane ") + plane;
    }
    parseCounters(slot);
    SCOPED_TRACE(planes);
    expectCountersInOrder(EventLayout::ofDevice(slot, kName, kPaddedName.size()), slot, false);
    expectCountersInOrder(EventLayout::ofPlane(slot, kName, kPaddedName.size()), slot, true);
  }
}

}  // namespace
}  // namespace tev::events::multipath
