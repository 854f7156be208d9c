// Input: the description lines of a slot's counters.
#include <stdexcept>

#include "collector/counter_parser.h"
#include "collector/event_buffer.h"
#include "collector/event_layout.h"
#include "tests/fuzz/fuzz.h"

using tev::test::check;
namespace mp = tev::events::multipath;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tev::test::formatMessages();
  mp::SlotInfo slot;
  slot.counter_infos = tev::test::linesOf(data, size);
  if (slot.counter_infos.size() > mp::kMaxCounters) slot.counter_infos.resize(mp::kMaxCounters);
  try {
    mp::parseCounters(slot);
  } catch (const std::out_of_range&) {
    return 0;  // a plane number that is too large
  }
  check(slot.counters.size() == slot.counter_infos.size(), "a counter to a line");
  check(slot.num_planes <= mp::kMaxPlanes, "planes are 8-bit numbers");
  // The sanitizers see what is written or read beyond an end.
  const std::vector<std::uint32_t> values(slot.counters.size());
  for (const auto& layout :
       {mp::EventLayout::ofDevice(slot, "name", 4), mp::EventLayout::ofPlane(slot, "name", 4)}) {
    mp::EventBuffer sample(layout.size(), layout.eventsPerSample());
    layout.write(values.data(), sample.append(layout.eventsPerSample(), 1));
  }
  return 0;
}
