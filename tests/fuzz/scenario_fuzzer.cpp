// Input: a scenario file. A valid scenario is played: every slot of a few devices is read,
// alternately with and without clearing.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <memory>

#include "simulator/handles.h"
#include "simulator/scenario.h"
#include "tests/fuzz/fuzz.h"

namespace {

using tev::test::check;

// The path of a file in memory with these bytes.
std::string fileOf(const std::uint8_t* data, std::size_t size) {
  static const int file = memfd_create("scenario", MFD_CLOEXEC);
  check(ftruncate(file, 0) == 0, "a file can be emptied");
  check(pwrite(file, data, size, 0) == static_cast<ssize_t>(size), "and filled");
  return "/proc/self/fd/" + std::to_string(file);
}

void readSlot(vuna_telemetry_mp& mp, std::size_t slot) {
  const auto& described = mp.device().slots[slot];
  const std::size_t room = std::min<std::size_t>(
      described.counters.size(),
      std::max(mp.told().max_num_counters.load(), mp.told().declared_counters.load()));
  for (const bool clear : {false, true, false}) {
    std::vector<std::uint32_t> values(room);  // the sanitizers see what is written beyond
    std::uint32_t count = 0;
    const auto status = mp.read(static_cast<std::uint32_t>(slot), clear, &count, values.data());
    check(status != 0 || count == described.filled_counters, "a read claims what it is to claim");
  }
}

void play(const simulator::Scenario& scenario) {
  constexpr std::size_t kDevices = 4;  // more take time and find nothing new
  for (std::size_t i = 0; i < std::min(scenario.devices.size(), kDevices); ++i) {
    const auto& device = scenario.devices[i];
    check(device.slots.size() <= simulator::kMaxSlots, "slots have 8-bit numbers");
    vuna_telemetry_mp mp(std::make_shared<vuna_dev>(device, false), scenario, false);
    check(mp.start(false) && mp.started(), "a context starts");
    for (std::size_t slot = 0; slot < device.slots.size(); ++slot) {
      check(device.slots[slot].counters.size() <= simulator::kMaxCounters, "so have counters");
      readSlot(mp, slot);
    }
    check(mp.stop() && !mp.stop(), "and is stopped once");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // The machine's own interfaces would make every run different.
  [[maybe_unused]] static const int set = setenv("VUNA_SIMULATOR_SYSFS", "/nonexistent", 1);
  try {
    play(simulator::readScenarioFile(fileOf(data, size), std::nullopt));
  } catch (const simulator::ScenarioError& error) {
    check(std::string(error.what()).starts_with("scenario /proc/self/fd/"), "the file is named");
  }
  return 0;
}
