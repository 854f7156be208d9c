// Input: the description lines of a slot's counters.
#include <algorithm>
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
  const auto written = [&](const mp::EventLayout& layout) {
    mp::EventBuffer sample(layout.size(), layout.eventsPerSample());
    layout.write(values.data(), sample.append(layout.eventsPerSample(), 1));
    return std::count(sample.data.get(), sample.data.get() + sample.capacity_bytes,
                      std::byte{0xff});
  };
  check(written(mp::EventLayout::ofDevice(slot, "name", kNameLength)) ==
            4 * std::ptrdiff_t(of_device),
        "every device counter is in the event");
  if (slot.num_planes > 0) written(mp::EventLayout::ofPlane(slot, "name", kNameLength));
  return 0;
}
