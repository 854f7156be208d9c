// A scenario: the devices, their slots and the faults that the simulator plays, independent of the
// format in which they were described.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "simulator/counter_source.h"
#include "simulator/faults.h"

namespace simulator {

// The SDK's calls have 8 bits for the index of a counter. Its users store the index of a slot in 8
// bits.
inline constexpr std::size_t kMaxCounters = 256;
inline constexpr std::size_t kMaxSlots = 256;
inline constexpr std::size_t kMaxDevices = 1024;

struct Counter {
  std::string text;     // the description line, as the SDK returns it
  bool clears = false;  // a clearing read resets the counter; false for a gauge
};

struct Slot {
  vuna_status id_status = kVunaSuccess;
  vuna_status enable_status = kVunaSuccess;
  bool algo_enabled = true;
  bool counters_enabled = true;
  std::uint32_t algo_id = 1;
  std::uint32_t major_version = 1;
  std::uint32_t minor_version = 0;
  std::string info{};
  bool unterminated = false;  // texts are returned without a terminating NUL
  std::uint32_t declared_counters = 0;
  std::uint32_t filled_counters = 0;  // the number that a read reports as filled
  std::uint64_t read_latency_usec = 0;
  std::vector<Counter> counters{};
  std::function<std::unique_ptr<CounterSource>()>
      make_source{};  // empty in a slot without counters
};

struct Device {
  std::string ibdev_name;
  bool unterminated_name = false;
  vuna_status multipath_support = kVunaSuccess;
  std::uint32_t max_algo_slots = 0;
  std::uint32_t max_algo_info_len = 0;
  std::uint32_t max_counter_info_len = 0;
  std::uint32_t max_num_counters = 0;
  std::vector<Slot> slots;
};

// `real` is the monotonic clock. With `samples`, each read is one step after the previous one.
enum class ClockKind { real, samples };

struct Scenario {
  ClockKind clock = ClockKind::real;
  std::uint64_t sample_step_usec = 1000;
  std::vector<Device> devices;
  Faults faults;
  std::map<vuna_status, std::string> status_names;
  std::vector<std::string> notes;  // what cannot be played of a recording: one sentence each
};

// A scenario that cannot be played. The text names the place and the reason.
class ScenarioError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

inline constexpr std::uint64_t kDefaultSeed = 1;

// Computes the numbers that depend on the slots' contents: declared and filled counters, and the
// device's maxima.
void deriveNumbers(Slot& slot);
void deriveMaxima(Device& device);

std::vector<Device> defaultDevices(std::uint64_t seed);

// The interfaces under `class_net` whose statistics can be read, sorted by name.
std::vector<Device> netdevDevices(const std::string& class_net);

// `seed`, if given, takes precedence over the file's own seed.
Scenario readScenarioFile(const std::string& path, std::optional<std::uint64_t> seed);

// The scenario named "default" or "netdev"; nothing for any other name.
std::optional<std::vector<Device>> builtInDevices(const std::string& name, std::uint64_t seed);

// The scenario that the environment names: VUNA_SIMULATOR_SCENARIO, VUNA_SIMULATOR_SEED and
// VUNA_SIMULATOR_SYSFS.
Scenario scenarioOfEnvironment();

}  // namespace simulator
