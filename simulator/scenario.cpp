#include "simulator/scenario.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <system_error>

#include "simulator/recorded_scenario.h"

namespace simulator {
namespace {

std::string environment(const char* name, const char* fallback) {
  const char* const value = secure_getenv(name);
  return value && *value ? value : fallback;
}

std::optional<std::uint64_t> seedOfEnvironment() {
  const std::string text = environment("VUNA_SIMULATOR_SEED", "");
  if (text.empty()) return std::nullopt;
  std::uint64_t seed = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, seed);
  if (error != std::errc() || stop != end)
    throw ScenarioError("VUNA_SIMULATOR_SEED: \"" + text + "\" is not an unsigned 64-bit number");
  return seed;
}

}  // namespace

void deriveNumbers(Slot& slot) {
  slot.declared_counters = static_cast<std::uint32_t>(slot.counters.size());
  slot.filled_counters = slot.declared_counters;
}

void deriveMaxima(Device& device) {
  std::size_t info = 0;
  std::size_t text = 0;
  std::size_t counters = 0;
  for (const Slot& slot : device.slots) {
    info = std::max(info, slot.info.size());
    counters = std::max(counters, slot.counters.size());
    for (const Counter& counter : slot.counters) text = std::max(text, counter.text.size());
  }
  device.max_algo_slots = static_cast<std::uint32_t>(device.slots.size());
  device.max_algo_info_len = static_cast<std::uint32_t>(info + 1);
  device.max_counter_info_len = static_cast<std::uint32_t>(text + 1);
  device.max_num_counters = static_cast<std::uint32_t>(counters);
}

std::optional<std::vector<Device>> builtInDevices(const std::string& name, std::uint64_t seed) {
  if (name == "default") return defaultDevices(seed);
  if (name == "netdev") return netdevDevices(environment("VUNA_SIMULATOR_SYSFS", "/sys/class/net"));
  return std::nullopt;
}

Scenario scenarioOfEnvironment() {
  const std::string name = environment("VUNA_SIMULATOR_SCENARIO", "default");
  const std::optional<std::uint64_t> seed = seedOfEnvironment();
  if (auto devices = builtInDevices(name, seed.value_or(kDefaultSeed))) {
    Scenario scenario;
    scenario.devices = std::move(*devices);
    return scenario;
  }
  if (isCapture(name)) return recordedScenario(name, ClockKind::real);
  return readScenarioFile(name, seed);
}

}  // namespace simulator
