#include "tests/support/fake_sdk.h"

#include <algorithm>
#include <cstring>

namespace tev::test {
namespace {

FakeSdk* current_sdk = nullptr;

// All handles of a device are its address: the fake tells by the call what is meant.
template <class Handle>
FakeDevice* deviceOf(const Handle* handle) {
  return const_cast<FakeDevice*>(reinterpret_cast<const FakeDevice*>(handle));
}
template <class Handle>
Handle* handleOf(FakeDevice* device) {
  return reinterpret_cast<Handle*>(device);
}

// The frame of a call: `deliver` fills the outputs, unless the call is to fail or to deliver
// nothing.
template <class Deliver>
vuna_status answer(const char* function, Deliver&& deliver) {
  const Fault* const fault = FakeSdk::current().enter(function);
  if (!fault) return deliver();
  if (fault->delivers) deliver();
  return fault->status;
}

template <class Value>
vuna_status give(const char* function, Value* out, Value value) {
  return answer(function, [&] {
    *out = value;
    return kVunaSuccess;
  });
}

// As many bytes as the SDK promised; a text that fills them all has no terminator.
void giveText(char* out, std::size_t length, const std::string& text) {
  std::strncpy(out, text.c_str(), length);
}

FakeSlot& slotOf(vuna_telemetry_mp* mp, std::uint32_t slot) {
  return deviceOf(mp)->slots.at(slot);
}

struct Functions {
  static const char* vuna_error_get_name(vuna_status status) {
    FakeSdk::current().enter(__func__);
    static std::map<vuna_status, std::string> names;
    return names.try_emplace(status, statusName(status)).first->second.c_str();
  }
  static vuna_status vuna_log_backend_create_with_file_sdk(std::FILE*, vuna_log_backend** out) {
    return give(__func__, out, reinterpret_cast<vuna_log_backend*>(&FakeSdk::current()));
  }
  static vuna_status vuna_log_backend_set_sdk_level(vuna_log_backend*, std::uint32_t level) {
    return answer(__func__, [&] {
      FakeSdk::current().trace.push_back("sdk level " + std::to_string(level));
      return kVunaSuccess;
    });
  }
  static vuna_status vuna_devinfo_get_ibdev_name(const vuna_devinfo* info, char* name,
                                                 std::uint32_t length) {
    return answer(__func__, [&] {
      giveText(name, length, deviceOf(info)->name);
      return kVunaSuccess;
    });
  }
  static vuna_status vuna_devinfo_create_list(vuna_devinfo*** list, std::uint32_t* count) {
    return answer(__func__, [&] {
      auto& sdk = FakeSdk::current();
      auto** handles = new vuna_devinfo*[sdk.devices.size() + 1];
      for (std::size_t i = 0; i < sdk.devices.size(); ++i)
        handles[i] = handleOf<vuna_devinfo>(&sdk.devices[i]);
      *list = handles;
      *count = static_cast<std::uint32_t>(sdk.devices.size());
      sdk.acquire("list", nullptr);
      return kVunaSuccess;
    });
  }
  static vuna_status vuna_devinfo_destroy_list(vuna_devinfo** list) {
    return answer(__func__, [&] {
      FakeSdk::current().giveBack("unlist", "list", nullptr);
      delete[] list;
      return kVunaSuccess;
    });
  }
  static vuna_status vuna_dev_open(vuna_devinfo* info, vuna_dev** dev) {
    return answer(__func__, [&] {
      *dev = handleOf<vuna_dev>(deviceOf(info));
      FakeSdk::current().acquire("open", deviceOf(info));
      return kVunaSuccess;
    });
  }
  static vuna_status vuna_dev_close(vuna_dev* dev) {
    FakeSdk::current().enter(__func__);
    FakeSdk::current().giveBack("close", "open", deviceOf(dev));
    return kVunaSuccess;
  }
  static vuna_devinfo* vuna_dev_as_devinfo(vuna_dev* dev) {
    return FakeSdk::current().enter(__func__) ? nullptr : handleOf<vuna_devinfo>(deviceOf(dev));
  }
  static vuna_status vuna_telemetry_mp_cap_is_supported(const vuna_devinfo* info) {
    return answer(__func__, [&] { return deviceOf(info)->supported; });
  }
  static vuna_status vuna_telemetry_mp_create(vuna_dev* dev, vuna_telemetry_mp** mp) {
    return answer(__func__, [&] {
      *mp = handleOf<vuna_telemetry_mp>(deviceOf(dev));
      FakeSdk::current().acquire("create", deviceOf(dev));
      return kVunaSuccess;
    });
  }
  static vuna_status vuna_telemetry_mp_destroy(vuna_telemetry_mp* mp) {
    FakeSdk::current().enter(__func__);
    FakeSdk::current().giveBack("destroy", "create", deviceOf(mp));
    return kVunaSuccess;
  }
  static vuna_status vuna_telemetry_mp_start(vuna_telemetry_mp* mp) {
    return answer(__func__, [&] {
      FakeSdk::current().acquire("start", deviceOf(mp));
      return kVunaSuccess;
    });
  }
  static vuna_status vuna_telemetry_mp_stop(vuna_telemetry_mp* mp) {
    FakeSdk::current().enter(__func__);
    FakeSdk::current().giveBack("stop", "start", deviceOf(mp));
    return kVunaSuccess;
  }
  static vuna_status vuna_telemetry_mp_cap_get_max_algo_slots(const vuna_devinfo* info,
                                                              std::uint32_t* out) {
    const auto& device = *deviceOf(info);
    return give(__func__, out,
                device.max_slots.value_or(static_cast<std::uint32_t>(device.slots.size())));
  }
  static vuna_status vuna_telemetry_mp_get_algo_id(vuna_telemetry_mp* mp, std::uint32_t slot,
                                                   std::uint32_t* out) {
    return answer(__func__, [&] {
      *out = 100 + slot;
      return slotOf(mp, slot).id_status;
    });
  }
  static vuna_status vuna_telemetry_mp_get_algo_major_version(vuna_telemetry_mp*, std::uint32_t,
                                                              std::uint32_t* out) {
    return give(__func__, out, std::uint32_t{1});
  }
  static vuna_status vuna_telemetry_mp_get_algo_minor_version(vuna_telemetry_mp*, std::uint32_t,
                                                              std::uint32_t* out) {
    return give(__func__, out, std::uint32_t{2});
  }
  static vuna_status vuna_telemetry_mp_get_algo_enable_status(vuna_telemetry_mp* mp,
                                                              std::uint32_t slot,
                                                              std::uint8_t* algo,
                                                              std::uint8_t* counters) {
    return answer(__func__, [&] {
      const auto& state = slotOf(mp, slot);
      *algo = state.algo_enabled;
      *counters = state.counters_enabled;
      return state.enable_status;
    });
  }
  static vuna_status vuna_telemetry_mp_cap_get_max_algo_info_len(const vuna_devinfo* info,
                                                                 std::uint32_t* out) {
    return give(__func__, out, deviceOf(info)->algo_info_length);
  }
  static vuna_status vuna_telemetry_mp_get_algo_info(vuna_telemetry_mp* mp, std::uint32_t,
                                                     char* out) {
    return answer(__func__, [&] {
      giveText(out, deviceOf(mp)->algo_info_length, deviceOf(mp)->algo_info);
      return kVunaSuccess;
    });
  }
  static vuna_status vuna_telemetry_mp_get_num_counters(vuna_telemetry_mp* mp, std::uint32_t,
                                                        std::uint32_t* out) {
    const auto& device = *deviceOf(mp);
    return give(__func__, out,
                device.num_counters.value_or(static_cast<std::uint32_t>(device.lines.size())));
  }
  static vuna_status vuna_telemetry_mp_cap_get_max_counter_info_len(const vuna_devinfo* info,
                                                                    std::uint32_t* out) {
    return give(__func__, out, deviceOf(info)->counter_info_length);
  }
  static vuna_status vuna_telemetry_mp_get_counter_info(vuna_telemetry_mp* mp, std::uint32_t,
                                                        std::uint8_t counter, char* out) {
    return answer(__func__, [&] {
      const auto& device = *deviceOf(mp);
      giveText(out, device.counter_info_length,
               counter < device.lines.size() ? device.lines[counter] : std::string());
      return kVunaSuccess;
    });
  }
  static vuna_status vuna_telemetry_mp_cap_get_max_num_counters(const vuna_devinfo* info,
                                                                std::uint32_t* out) {
    const auto& device = *deviceOf(info);
    return give(__func__, out,
                device.max_counters.value_or(static_cast<std::uint32_t>(device.values.size())));
  }
  static vuna_status vuna_telemetry_mp_get_counters(vuna_telemetry_mp* mp, std::uint32_t,
                                                    std::uint32_t* count, std::uint32_t* values) {
    return answer(__func__, [&] { return read(*deviceOf(mp), count, values); });
  }
  static vuna_status vuna_telemetry_mp_get_and_clear_counters(vuna_telemetry_mp* mp, std::uint32_t,
                                                              std::uint32_t* count,
                                                              std::uint32_t* values) {
    return answer(__func__, [&] {
      const auto status = read(*deviceOf(mp), count, values);
      std::fill(deviceOf(mp)->values.begin(), deviceOf(mp)->values.end(), 0);
      return status;
    });
  }

  static vuna_status read(FakeDevice& device, std::uint32_t* count, std::uint32_t* values) {
    const auto& hook = FakeSdk::current().on_read;
    if (hook) hook(device);
    std::copy(device.values.begin(), device.values.end(), values);
    *count = device.filled.value_or(static_cast<std::uint32_t>(device.values.size()));
    return kVunaSuccess;
  }
};

}  // namespace

std::string statusName(vuna_status status) {
  return "STATUS_" + std::to_string(status);
}

FakeSdk::FakeSdk() {
  current_sdk = this;
#define TEV_FAKE(name, result, parameters) functions_.name = Functions::name;
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

void FakeSdk::acquire(const char* what, FakeDevice* device) {
  const std::string entry = device ? what + (" " + device->name) : what;
  trace.push_back(entry);
  held_.insert(entry);
}

void FakeSdk::giveBack(const char* what, const char* undoes, FakeDevice* device) {
  const std::string suffix = device ? " " + device->name : "";
  trace.push_back(what + suffix);
  const auto held = held_.find(undoes + suffix);
  if (held == held_.end())
    misuse.push_back(what + suffix);
  else
    held_.erase(held);
}

bool FakeSdk::balanced() const {
  return held_.empty() && misuse.empty();
}

}  // namespace tev::test
