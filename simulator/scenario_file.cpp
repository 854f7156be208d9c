// Reads scenario files. docs/simulator.md describes their format.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <system_error>
#include <utility>

#include "simulator/fields.h"
#include "simulator/recorded_scenario.h"
#include "simulator/scenario.h"
#include "simulator/value_law.h"

namespace simulator {
namespace {

constexpr std::size_t kMaxFileBytes = std::size_t{16} << 20;
constexpr std::size_t kMaxFaults = 4096;
constexpr std::size_t kMaxAllCounters = std::size_t{1} << 16;  // of a whole scenario
constexpr std::uint64_t kMaxLatencyUsec = 3'600'000'000;
constexpr double kMaxPeriodSeconds = 1e9;

class Descriptor {
 public:
  explicit Descriptor(const std::string& path)
      : descriptor_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (descriptor_ >= 0) close(descriptor_);
  }
  int get() const { return descriptor_; }

 private:
  int descriptor_;
};

[[noreturn]] void refuseFile(const std::string& path, const std::string& reason) {
  throw ScenarioError("scenario " + path + ": " + reason);
}

std::string readFile(const std::string& path) {
  const Descriptor file(path);
  struct stat status {};
  if (file.get() < 0 || fstat(file.get(), &status) != 0)
    refuseFile(path, std::string("cannot be read: ") + std::strerror(errno));
  if (!S_ISREG(status.st_mode)) refuseFile(path, "is not a regular file");

  std::string text;
  char block[1 << 14];
  ssize_t length = 0;
  while ((length = read(file.get(), block, sizeof block)) > 0) {
    text.append(block, static_cast<std::size_t>(length));
    if (text.size() > kMaxFileBytes) refuseFile(path, "is larger than 16 MiB");
  }
  if (length < 0) refuseFile(path, std::string("cannot be read: ") + std::strerror(errno));
  return text;
}

// --- Laws -------------------------------------------------------------------------------------

Ramp readRamp(Fields& fields) {
  Ramp ramp;
  ramp.start = fields.number32("start", 0);
  const auto per_second = fields.find("per_second");
  const auto per_sample = fields.find("per_sample");
  if (per_second.has_value() == per_sample.has_value())
    fields.object().refuse("a ramp has either \"per_second\" or \"per_sample\"");
  if (per_second) ramp.per_second = per_second->number(0, kMaxPerSecond);
  if (per_sample) ramp.per_sample = per_sample->number32();
  return ramp;
}

Sine readSine(Fields& fields) {
  Sine sine;
  sine.mean = fields.require("mean").real(0, UINT32_MAX);
  sine.amplitude = fields.require("amplitude").real(0, UINT32_MAX);
  sine.period_usec = fields.require("period_seconds").real(1e-6, kMaxPeriodSeconds) * 1e6;
  return sine;
}

RandomWalk readRandomWalk(Fields& fields) {
  RandomWalk walk;
  walk.start = fields.number32("start", 0);
  walk.step = fields.require("step").number32();
  walk.min = fields.number32("min", 0);
  walk.max = fields.number32("max", UINT32_MAX);
  if (walk.min > walk.start || walk.start > walk.max)
    fields.object().refuse("\"start\" must lie from \"min\" to \"max\"");
  return walk;
}

ValueLaw readLawNamed(const Located& name, Fields& fields) {
  const std::string& law = name.string();
  if (law == "constant") return Constant{fields.require("value").number32()};
  if (law == "ramp") return readRamp(fields);
  if (law == "sine") return readSine(fields);
  if (law == "random_walk") return readRandomWalk(fields);
  name.refuse("unknown law \"" + law + "\" (constant, ramp, sine, random_walk)");
}

ValueLaw readLaw(const Located& value) {
  Fields fields(value);
  ValueLaw law = readLawNamed(fields.require("type"), fields);
  fields.refuseUnknown();
  return law;
}

// --- Counters, slots, devices -----------------------------------------------------------------

// The device, slot and counter from which the key of the counter's random numbers is computed.
struct Place {
  std::uint64_t seed;
  std::size_t device;
  std::size_t slot;
};

// One entry of "counters": one counter, or one for each of its planes.
void readCounter(const Located& value, const Place& place, Slot& slot,
                 std::vector<KeyedLaw>& laws) {
  Fields fields(value);
  const std::string text = fields.require("text").bytes();
  const auto planes = fields.find("planes");
  const std::uint64_t copies = planes ? planes->number(1, kMaxCounters) : 1;
  const auto given_law = fields.find("law");
  const ValueLaw law = given_law ? readLaw(*given_law) : Constant{};
  const bool clears = fields.boolean("clear_on_read", std::holds_alternative<Ramp>(law));
  fields.refuseUnknown();

  if (slot.counters.size() + copies > kMaxCounters)
    value.refuse("a slot has at most " + std::to_string(kMaxCounters) + " counters");
  for (std::uint64_t p = 0; p < copies; ++p) {
    laws.push_back({law, counterKey(place.seed, place.device, place.slot, laws.size())});
    slot.counters.push_back({planes ? text + ", plane " + std::to_string(p) : text, clears});
  }
}

void readCounters(const Located& value, const Place& place, Slot& slot) {
  std::vector<KeyedLaw> laws;
  for (const Located& counter : value.items(kMaxCounters)) readCounter(counter, place, slot, laws);
  if (!laws.empty()) slot.make_source = [laws = std::move(laws)] { return makeLawSource(laws); };
}

Slot readSlot(const Located& value, const Place& place) {
  Fields fields(value);
  Slot slot;
  slot.id_status = fields.number32("status", kVunaSuccess);
  slot.enable_status = fields.number32("enable_status", kVunaSuccess);
  slot.algo_enabled = fields.boolean("algo_enabled", true);
  slot.counters_enabled = fields.boolean("counters_enabled", true);
  slot.algo_id = fields.number32("algo_id", slot.algo_id);
  slot.major_version = fields.number32("major_version", slot.major_version);
  slot.minor_version = fields.number32("minor_version", slot.minor_version);
  slot.info = fields.bytes("info");
  slot.unterminated = fields.boolean("unterminated", false);
  slot.read_latency_usec = fields.number("read_latency_usec", 0, 0, kMaxLatencyUsec);
  if (const auto counters = fields.find("counters")) readCounters(*counters, place, slot);
  deriveNumbers(slot);
  slot.declared_counters = fields.number32("declared_counters", slot.declared_counters);
  slot.filled_counters = fields.number32("filled_counters", slot.filled_counters);
  fields.refuseUnknown();
  return slot;
}

Device readDevice(const Located& value, std::uint64_t seed, std::size_t number) {
  Fields fields(value);
  Device device;
  device.ibdev_name = fields.require("ibdev_name").bytes();
  device.unterminated_name = fields.boolean("unterminated_name", false);
  device.multipath_support = fields.number32("multipath_support", kVunaSuccess);
  if (const auto slots = fields.find("slots"))
    for (const Located& slot : slots->items(kMaxSlots))
      device.slots.push_back(readSlot(slot, {seed, number, device.slots.size()}));
  deriveMaxima(device);
  device.max_algo_slots = fields.number32("max_algo_slots", device.max_algo_slots);
  device.max_algo_info_len = fields.number32("max_algo_info_len", device.max_algo_info_len);
  device.max_counter_info_len =
      fields.number32("max_counter_info_len", device.max_counter_info_len);
  device.max_num_counters = fields.number32("max_num_counters", device.max_num_counters);
  fields.refuseUnknown();
  return device;
}

// The devices, and what they need of the scenario. The clock must be known.
std::vector<Device> readDevices(Fields& fields, std::uint64_t seed, Scenario& scenario) {
  const auto base = fields.find("base");
  const auto list = fields.find("devices");
  if (base.has_value() == list.has_value())
    fields.object().refuse("a scenario has either \"devices\" or \"base\"");

  if (base && isCapture(base->string())) {
    Scenario recorded = recordedScenario(base->string(), scenario.clock);
    scenario.status_names = std::move(recorded.status_names);
    scenario.notes = std::move(recorded.notes);
    return std::move(recorded.devices);
  }
  if (base) {
    auto devices = builtInDevices(base->string(), seed);
    if (!devices) base->refuse("must be \"default\", \"netdev\" or a capture file");
    return std::move(*devices);
  }
  std::vector<Device> devices;
  std::size_t counters = 0;
  for (const Located& device : list->items(kMaxDevices)) {
    devices.push_back(readDevice(device, seed, devices.size()));
    for (const Slot& slot : devices.back().slots) counters += slot.counters.size();
    if (counters > kMaxAllCounters)
      device.refuse("more than " + std::to_string(kMaxAllCounters) + " counters in all");
  }
  return devices;
}

// --- Faults -----------------------------------------------------------------------------------

Function readFunction(const Located& value) {
  const auto function = functionNamed(value.string());
  if (!function) value.refuse("unknown function \"" + value.string() + "\"");
  return *function;
}

std::optional<std::uint64_t> readCall(const Located& value) {
  if (value.json->type != Json::Type::string) return value.number(1, UINT64_MAX);
  if (value.string() != "every") value.refuse("must be a number from 1, or \"every\"");
  return std::nullopt;
}

void readDeliver(const Located& value, Fault& fault) {
  if (value.json->type != Json::Type::string) {
    fault.deliver = Fault::Deliver::number;
    fault.number = value.number32();
    if (!deliversNumber(fault.function)) value.refuse("this function has no number to deliver");
  } else if (value.string() == "untouched") {
    fault.deliver = Fault::Deliver::untouched;
  } else if (value.string() == "nothing") {
    fault.deliver = Fault::Deliver::nothing;
  } else if (value.string() == "result") {
    fault.deliver = Fault::Deliver::result;
  } else {
    value.refuse("must be \"untouched\", \"nothing\", \"result\" or a number");
  }
}

bool hasDevice(const std::vector<Device>& devices, const std::string& name) {
  for (const Device& device : devices)
    if (device.ibdev_name == name) return true;
  return false;
}

Fault readFault(const Located& value, const std::vector<Device>& devices) {
  Fields fields(value);
  Fault fault;
  fault.function = readFunction(fields.require("function"));
  fault.call = readCall(fields.require("call"));
  fault.status = fields.number32("status", kVunaSuccess);
  fault.latency_usec = fields.number("latency_usec", 0, 0, kMaxLatencyUsec);
  if (const auto device = fields.find("device")) {
    fault.device = device->bytes();
    if (!concernsDevice(fault.function)) device->refuse("this function is about no device");
    if (!hasDevice(devices, *fault.device)) device->refuse("no device has this name");
  }

  const bool only_late = fault.status == kVunaSuccess && fault.latency_usec != 0;
  if (releases(fault.function) || only_late)
    fault.deliver = Fault::Deliver::result;
  else if (fault.status == kVunaSuccess)
    fault.deliver = Fault::Deliver::nothing;
  if (const auto deliver = fields.find("deliver")) readDeliver(*deliver, fault);
  fields.refuseUnknown();
  return fault;
}

// --- The whole --------------------------------------------------------------------------------

ClockKind readClock(const Located& value) {
  if (value.string() == "real") return ClockKind::real;
  if (value.string() == "samples") return ClockKind::samples;
  value.refuse("must be \"real\" or \"samples\"");
}

std::map<vuna_status, std::string> readStatusNames(const Located& value) {
  Fields fields(value);
  std::map<vuna_status, std::string> names;
  for (const JsonMember& member : value.json->members) {
    vuna_status status = 0;
    const char* const end = member.key.data() + member.key.size();
    const auto [stop, error] = std::from_chars(member.key.data(), end, status);
    if (error != std::errc() || stop != end)
      throw JsonError(member.line, value.place + ": \"" + member.key + "\" is not a status number");
    names[status] = Located{&member.value, value.place + "." + member.key}.string();
  }
  return names;
}

Scenario readScenario(const Json& root, std::optional<std::uint64_t> given_seed) {
  Fields fields({&root, ""});
  Scenario scenario;
  const std::uint64_t own_seed = fields.number("seed", kDefaultSeed, 0, UINT64_MAX);
  if (const auto clock = fields.find("clock")) scenario.clock = readClock(*clock);
  scenario.sample_step_usec =
      fields.number("sample_step_usec", scenario.sample_step_usec, 1, kMaxLatencyUsec);
  scenario.devices = readDevices(fields, given_seed.value_or(own_seed), scenario);
  if (const auto names = fields.find("status_names"))
    for (auto& [status, name] : readStatusNames(*names))
      scenario.status_names.insert_or_assign(status, name);
  if (const auto faults = fields.find("faults"))
    for (const Located& fault : faults->items(kMaxFaults))
      scenario.faults.add(readFault(fault, scenario.devices));
  fields.refuseUnknown();
  return scenario;
}

}  // namespace

Scenario readScenarioFile(const std::string& path, std::optional<std::uint64_t> seed) {
  try {
    return readScenario(parseJson(readFile(path)), seed);
  } catch (const JsonError& error) {
    throw ScenarioError("scenario " + path + ":" + std::to_string(error.line()) + ": " +
                        error.what());
  }
}

}  // namespace simulator
