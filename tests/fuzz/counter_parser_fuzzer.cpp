// Input: the description lines of a slot's counters.
#include <algorithm>
#include <cstring>
#include <numeric>
#include <stdexcept>
#include <string>

#include "collector/counter_parser.h"
#include "collector/event_buffer.h"
#include "collector/event_layout.h"
#include "tests/fuzz/fuzz.h"

using tev::test::check;
namespace mp = tev::events::multipath;

namespace {

const std::string kName = "a name of some length";
const std::string kPaddedName = kName + std::string(2, '\0');

// The expected bytes of a sample's events. Counters beyond the fields are dropped, and missing
// counters are zero.
void checkSample(const mp::EventLayout& layout, const mp::SlotInfo& slot, bool of_planes) {
  std::vector<std::uint32_t> values(slot.counters.size());
  std::iota(values.begin(), values.end(), 1);
  mp::EventBuffer sample(layout.size(), layout.eventsPerSample());
  layout.write(values.data(), sample.append(layout.eventsPerSample(), 1));
  for (std::uint32_t plane = 0; plane < layout.eventsPerSample(); ++plane) {
    std::string expected = kPaddedName;
    if (of_planes) expected += static_cast<char>(plane);
    for (const auto& counter : slot.counters)
      if (counter.is_per_plane == of_planes && counter.plane == plane)
        expected.append(reinterpret_cast<const char*>(&values[counter.index]), sizeof values[0]);
    expected.resize(layout.size());
    check(std::memcmp(sample.at(plane), expected.data(), expected.size()) == 0,
          "every counter goes where there is room for it");
  }
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
    return 0;  // a plane number that is too large
  }
  const auto is_of_device = [](const auto& counter) { return !counter.is_per_plane; };
  const auto of_device = static_cast<std::size_t>(
      std::count_if(slot.counters.begin(), slot.counters.end(), is_of_device));
  check(slot.counters.size() == slot.counter_infos.size(), "a counter to a line");
  check(slot.device_counter_names.size() == of_device, "what is of no plane is the device's");
  check(slot.num_planes <= mp::kMaxPlanes, "planes are 8-bit numbers");
  check((slot.num_planes > 0) == (of_device < slot.counters.size()), "planes come from counters");

  checkSample(mp::EventLayout::ofDevice(slot, kName, kPaddedName.size()), slot, false);
  checkSample(mp::EventLayout::ofPlane(slot, kName, kPaddedName.size()), slot, true);
  return 0;
}
