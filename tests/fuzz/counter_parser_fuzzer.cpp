// Input: the description lines of a slot's counters.
#include <algorithm>
#include <stdexcept>

#include "collector/counter_parser.h"
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
    return 0;  // a plane number beyond all bounds
  }
  const auto of_device = static_cast<std::size_t>(
      std::count_if(slot.counters.begin(), slot.counters.end(),
                    [](const auto& counter) { return !counter.is_per_plane; }));
  check(slot.counters.size() == slot.counter_infos.size(), "a counter to a line");
  check(slot.num_device_counters == of_device, "what is of no plane is the device's");
  check(slot.device_counter_names.size() == of_device, "each has a name");
  check(slot.num_planes <= mp::kMaxPlanes, "planes are 8-bit numbers");
  check((slot.num_planes > 0) == (of_device < slot.counters.size()), "planes come from counters");

  // Every counter goes where there is room for it.
  constexpr std::size_t kNameLength = 5;
  const std::vector<std::uint32_t> values(slot.counters.size(), 0xffffffff);
  const auto device = mp::EventLayout::ofDevice(slot, kNameLength);
  std::vector<std::byte> event(device.size());
  device.putCounters(0, values.data(), event.data());
  check(std::count(event.begin(), event.end(), std::byte{0xff}) == 4 * std::ptrdiff_t(of_device),
        "every device counter is in the event");
  const auto planes = mp::EventLayout::ofPlane(slot, kNameLength);
  for (std::uint32_t plane = 0; plane < slot.num_planes; ++plane) {
    event.assign(planes.size(), std::byte{});
    planes.putCounters(plane, values.data(), event.data());
  }
  return 0;
}
