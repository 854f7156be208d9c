// What the simulator plays, whichever way it was described: devices, their slots, and the faults.
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

// A counter's index has 8 bits in the SDK's calls, and a slot's is kept in 8 bits by its users.
inline constexpr std::size_t kMaxCounters = 256;
inline constexpr std::size_t kMaxSlots = 256;
inline constexpr std::size_t kMaxDevices = 1024;

struct Counter {
  std::string text;     // the description line, as the SDK hands it out
  bool clears = false;  // a clearing read starts it anew; a gauge it leaves alone
};

struct Slot {
  vuna_status id_status = kVunaSuccess;
  vuna_status enable_status = kVunaSuccess;
  bool algo_enabled = true;
  bool counters_enabled = true;
  std::uint32_t algo_id = 1;
  std::uint32_t major_version = 1;
  std::uint32_t minor_version = 0;
  std::string info;
  bool unterminated = false;  // texts are handed out without their NUL
  std::uint32_t declared_counters = 0;
  std::uint32_t filled_counters = 0;  // what a read claims to have filled
  std::uint64_t read_latency_usec = 0;
  std::vector<Counter> counters;
  std::function<std::unique_ptr<CounterSource>()> make_source;  // none in a slot without counters
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

// `real` time runs by itself; with `samples` each read comes one step after the one before.
enum class ClockKind { real, samples };

struct Scenario {
  ClockKind clock = ClockKind::real;
  std::uint64_t sample_step_usec = 1000;
  std::vector<Device> devices;
  Faults faults;
  std::map<vuna_status, std::string> status_names;
};

// A scenario that cannot be played. The text is for a person and says where the fault lies.
class ScenarioError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

inline constexpr std::uint64_t kDefaultSeed = 1;

// Sets the numbers that follow from the slots' contents: declared and filled counters, and the
// device's maxima.
void deriveNumbers(Slot& slot);
void deriveMaxima(Device& device);

std::vector<Device> defaultDevices(std::uint64_t seed);

// The interfaces under `class_net` whose statistics can be read, by name.
std::vector<Device> netdevDevices(const std::string& class_net);

// `seed`, when given, goes before the file's own.
Scenario readScenarioFile(const std::string& path, std::optional<std::uint64_t> seed);

// "default" or "netdev"; nothing for any other name.
std::optional<std::vector<Device>> builtInDevices(const std::string& name, std::uint64_t seed);

// The scenario that the environment names: VUNA_SIMULATOR_SCENARIO, VUNA_SIMULATOR_SEED and
// VUNA_SIMULATOR_SYSFS.
Scenario scenarioOfEnvironment();

}  // namespace simulator
