// Input: the description lines of a slot's counters.
#include <algorithm>
#include <cstring>
#include <numeric>
#include <stdexcept>

#include "collector/counter_parser.h"
#include "collector/event_layout.h"
#include "tests/fuzz/fuzz.h"

using tev::test::check;
namespace mp = tev::events::multipath;

namespace {

// Adjacent counters may be copied as one run: what comes out must be the same as one by one. What
// an event has no room for is cut, and what it lacks reads zero.
template <class Selected>
void checkEvent(const mp::EventLayout& layout, std::uint32_t plane, std::size_t head,
                const mp::SlotInfo& slot, Selected selected) {
  std::vector<std::uint32_t> values(slot.counters.size());
  std::iota(values.begin(), values.end(), 1);
  std::vector<std::uint32_t> expected;
  for (const auto& counter : slot.counters)
    if (selected(counter)) expected.push_back(values[counter.index]);
  expected.resize((layout.size() - head) / sizeof expected[0]);
  expected.push_back(0);  // what follows stays as it is
  std::vector<std::byte> event(layout.size() + sizeof expected[0]);
  layout.putCounters(plane, values.data(), event.data());
  check(std::memcmp(&event[head], expected.data(), event.size() - head) == 0,
        "every counter goes where there is room for it");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tev::test::formatMessages();
  mp::SlotInfo slot;
  slot.counter_infos = tev::test::linesOf(data, size);
  if (slot.counter_infos.size() > mp::kMaxCounters) slot.counter_infos.resize(mp::kMaxCounters);
  try {
    mp::parseCounters(slot);
  } catch (const std::out_of_range&) {
    return 0;  // a plane number beyond all bounds
  }
  const auto is_of_device = [](const auto& counter) { return !counter.is_per_plane; };
  const auto of_device = static_cast<std::size_t>(
      std::count_if(slot.counters.begin(), slot.counters.end(), is_of_device));
  check(slot.counters.size() == slot.counter_infos.size(), "a counter to a line");
  check(slot.device_counter_names.size() == of_device, "what is of no plane is the device's");
  check(slot.num_planes <= mp::kMaxPlanes, "planes are 8-bit numbers");
  check((slot.num_planes > 0) == (of_device < slot.counters.size()), "planes come from counters");

  constexpr std::size_t kNameLength = 5;
  checkEvent(mp::EventLayout::ofDevice(slot, kNameLength), 0, kNameLength, slot, is_of_device);
  const auto planes = mp::EventLayout::ofPlane(slot, kNameLength);
  for (std::uint32_t plane = 0; plane < slot.num_planes; ++plane)
    checkEvent(planes, plane, kNameLength + 1, slot, [plane](const auto& counter) {
      return counter.is_per_plane && counter.plane == plane;
    });
  return 0;
}
