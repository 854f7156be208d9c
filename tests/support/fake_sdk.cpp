#include "tests/support/fake_sdk.h"

#include <algorithm>
#include <cstring>

namespace tev::test {
namespace {

using events::multipath::SdkFunctions;
using State = FakeDevice::State;

FakeSdk* current_sdk = nullptr;
// If a call fails but the SDK did the work, the SDK must undo it. A device is the exception: its
// handle must be closed, whatever the status.
thread_local bool refusing = false;

// All handles of a device are its address. The called function determines the kind of the handle.
template <class Handle>
FakeDevice& deviceOf(const Handle* handle) {
  return *const_cast<FakeDevice*>(reinterpret_cast<const FakeDevice*>(handle));
}
template <class Handle>
Handle* handleOf(FakeDevice& device) {
  return reinterpret_cast<Handle*>(&device);
}

template <class Value>
vuna_status give(Value* out, Value value) {
  *out = value;
  return kVunaSuccess;
}

vuna_status step(const char* what, FakeDevice& device, State from, State to) {
  current_sdk->step(what, device, from, to);
  return kVunaSuccess;
}

// A text that fills its buffer has no terminator.
vuna_status giveText(char* out, std::size_t room, const std::string& text) {
  std::memcpy(out, text.c_str(), std::min(room, text.size() + 1));
  return kVunaSuccess;
}

FakeSlot slotOf(const vuna_telemetry_mp* mp, std::uint32_t slot) {
  const auto& slots = deviceOf(mp).slots;
  return slot < slots.size() ? slots[slot] : FakeSlot{.id_status = kVunaSlotEmpty};
}

template <class Elements>
std::uint32_t countOf(const Elements& elements) {
  return static_cast<std::uint32_t>(elements.size());
}

vuna_status read(FakeDevice& device, std::uint32_t* count, std::uint32_t* values) {
  if (device.state != State::kStarted) current_sdk->misuse.push_back("read " + device.name);
  if (current_sdk->on_read) current_sdk->on_read(device);
  const std::size_t room = std::max(device.declared_room, device.values_room);
  std::copy_n(device.values.begin(), std::min(room, device.values.size()), values);
  return give(count, device.filled.value_or(countOf(device.values)));
}

// The functions without faults.
SdkFunctions plainAnswers() {
  SdkFunctions sdk;
  sdk.vuna_error_get_name = [](auto status) -> const char* {
    thread_local std::map<vuna_status, std::string> names;
    if (status == 0xffffffff) return nullptr;
    return names.try_emplace(status, statusName(status)).first->second.c_str();
  };
  sdk.vuna_log_backend_create_with_file_sdk = [](auto*, auto** out) {
    return give(out, reinterpret_cast<vuna_log_backend*>(current_sdk));
  };
  sdk.vuna_log_backend_set_sdk_level = [](auto*, auto level) {
    current_sdk->trace.push_back("sdk level " + std::to_string(level));
    return kVunaSuccess;
  };
  sdk.vuna_devinfo_get_ibdev_name = [](auto* info, auto* name, auto length) {
    return giveText(name, length, deviceOf(info).name);
  };
  sdk.vuna_devinfo_create_list = [](auto*** list, auto* count) {
    auto& handles = current_sdk->list;
    handles.clear();
    for (auto& device : current_sdk->devices)
      handles.push_back(device.listed ? handleOf<vuna_devinfo>(device) : nullptr);
    *count = countOf(handles);
    handles.push_back(nullptr);  // an empty list has an address too
    *list = handles.data();
    if (!refusing) current_sdk->setListed("list", true);
    return kVunaSuccess;
  };
  sdk.vuna_devinfo_destroy_list = [](auto**) {
    current_sdk->setListed("unlist", false);
    return kVunaSuccess;
  };
  sdk.vuna_dev_open = [](auto* info, auto** dev) {
    *dev = handleOf<vuna_dev>(deviceOf(info));
    return step("open", deviceOf(info), State::kClosed, State::kOpen);
  };
  sdk.vuna_dev_close = [](auto* dev) {
    return step("close", deviceOf(dev), State::kOpen, State::kClosed);
  };
  sdk.vuna_dev_as_devinfo = [](auto* dev) { return handleOf<vuna_devinfo>(deviceOf(dev)); };
  sdk.vuna_telemetry_mp_cap_is_supported = [](auto* info) { return deviceOf(info).supported; };
  sdk.vuna_telemetry_mp_create = [](auto* dev, auto** mp) {
    *mp = handleOf<vuna_telemetry_mp>(deviceOf(dev));
    if (refusing) return kVunaSuccess;
    return step("create", deviceOf(dev), State::kOpen, State::kCreated);
  };
  sdk.vuna_telemetry_mp_destroy = [](auto* mp) {
    return step("destroy", deviceOf(mp), State::kCreated, State::kOpen);
  };
  sdk.vuna_telemetry_mp_start = [](auto* mp) {
    if (refusing) return kVunaSuccess;
    return step("start", deviceOf(mp), State::kCreated, State::kStarted);
  };
  sdk.vuna_telemetry_mp_stop = [](auto* mp) {
    return step("stop", deviceOf(mp), State::kStarted, State::kCreated);
  };
  sdk.vuna_telemetry_mp_cap_get_max_algo_slots = [](auto* info, auto* out) {
    return give(out, deviceOf(info).max_slots.value_or(countOf(deviceOf(info).slots)));
  };
  sdk.vuna_telemetry_mp_get_algo_id = [](auto* mp, auto slot, auto* out) {
    *out = 100 + slot;
    return slotOf(mp, slot).id_status;
  };
  sdk.vuna_telemetry_mp_get_algo_major_version = [](auto*, auto, auto* out) {
    return give(out, 1u);
  };
  sdk.vuna_telemetry_mp_get_algo_minor_version = [](auto*, auto, auto* out) {
    return give(out, 2u);
  };
  sdk.vuna_telemetry_mp_get_algo_enable_status = [](auto* mp, auto slot, auto* algo,
                                                    auto* counters) {
    *algo = slotOf(mp, slot).algo_enabled;
    *counters = slotOf(mp, slot).counters_enabled;
    return slotOf(mp, slot).enable_status;
  };
  sdk.vuna_telemetry_mp_cap_get_max_algo_info_len = [](auto* info, auto* out) {
    return give(out, deviceOf(info).algo_info_length);
  };
  sdk.vuna_telemetry_mp_get_algo_info = [](auto* mp, auto, auto* out) {
    return giveText(out, deviceOf(mp).algo_info_length, "fake algorithm");
  };
  sdk.vuna_telemetry_mp_get_num_counters = [](auto* mp, auto, auto* out) {
    auto& device = deviceOf(mp);
    device.declared_room = device.num_counters.value_or(countOf(device.lines));
    return give(out, device.declared_room);
  };
  sdk.vuna_telemetry_mp_cap_get_max_counter_info_len = [](auto* info, auto* out) {
    deviceOf(info).text_room = deviceOf(info).counter_info_length;
    return give(out, deviceOf(info).text_room);
  };
  sdk.vuna_telemetry_mp_get_counter_info = [](auto* mp, auto, auto counter, auto* out) {
    const auto& device = deviceOf(mp);
    return giveText(out, device.text_room,
                    counter < device.lines.size() ? device.lines[counter] : "");
  };
  sdk.vuna_telemetry_mp_cap_get_max_num_counters = [](auto* info, auto* out) {
    auto& device = deviceOf(info);
    device.values_room = device.max_counters.value_or(countOf(device.values));
    return give(out, device.values_room);
  };
  sdk.vuna_telemetry_mp_get_counters = [](auto* mp, auto, auto* count, auto* values) {
    return read(deviceOf(mp), count, values);
  };
  sdk.vuna_telemetry_mp_get_and_clear_counters = [](auto* mp, auto, auto* count, auto* values) {
    const auto status = read(deviceOf(mp), count, values);
    std::fill(deviceOf(mp).values.begin(), deviceOf(mp).values.end(), 0);
    return status;
  };
  return sdk;
}

// The frame of a call: answers normally, unless the call must fail or deliver nothing.
template <auto kFunction, const char* kName, class Result, class... Arguments>
auto framed(Result (*)(Arguments...)) {
  return +[](Arguments... arguments) -> Result {
    static const SdkFunctions plain = plainAnswers();
    const Fault* const fault = current_sdk->enter(kName);
    if (!fault) return (plain.*kFunction)(arguments...);
    if (fault->delivers) {
      refusing = fault->status != kVunaSuccess;
      (plain.*kFunction)(arguments...);
      refusing = false;
    }
    if constexpr (std::is_same_v<Result, vuna_status>)
      return fault->status;
    else
      return nullptr;
  };
}

}  // namespace

std::string statusName(vuna_status status) {
  return "STATUS_" + std::to_string(status);
}

FakeSdk::FakeSdk() {
  current_sdk = this;
#define TEV_FAKE(name, result, parameters)  \
  static constexpr char k_##name[] = #name; \
  functions_.name = framed<&SdkFunctions::name, k_##name>(functions_.name);
  VUNA_FUNCTIONS(TEV_FAKE)
#undef TEV_FAKE
}

FakeSdk::~FakeSdk() {
  current_sdk = nullptr;
}

FakeSdk& FakeSdk::current() {
  return *current_sdk;
}

FakeDevice& FakeSdk::add(std::string name, std::vector<std::string> lines,
                         std::vector<std::uint32_t> values) {
  devices.push_back(
      {.name = std::move(name), .lines = std::move(lines), .values = std::move(values)});
  return devices.back();
}

const Fault* FakeSdk::enter(const char* function) {
  const std::scoped_lock lock(mutex_);
  const unsigned call = ++calls[function];
  for (const auto& fault : faults)
    if (fault.function == function && fault.call == call) return &fault;
  return nullptr;
}

void FakeSdk::step(const char* what, FakeDevice& device, State from, State to) {
  trace.push_back(what + (" " + device.name));
  if (!listed_ || device.state != from) misuse.push_back(trace.back());
  device.state = to;
}

void FakeSdk::setListed(const char* what, bool listed) {
  trace.emplace_back(what);
  if (listed_ == listed || !allClosed()) misuse.push_back(trace.back());
  listed_ = listed;
}

bool FakeSdk::allClosed() const {
  return std::all_of(devices.begin(), devices.end(),
                     [](const auto& device) { return device.state == State::kClosed; });
}

bool FakeSdk::balanced() const {
  return misuse.empty() && !listed_ && allClosed();
}

}  // namespace tev::test
