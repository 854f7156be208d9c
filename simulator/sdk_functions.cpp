// The SDK's 27 functions: each checks its arguments, plays a fault if there is one, and returns its
// results.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <exception>
#include <new>
#include <string>
#include <type_traits>

#include "simulator/common_library.h"
#include "simulator/report.h"
#include "simulator/sdk.h"

namespace simulator {
namespace {

void sleepUsec(std::uint64_t usec) {
  timespec left{static_cast<time_t>(usec / 1'000'000), static_cast<long>(usec % 1'000'000 * 1'000)};
  while (usec && clock_nanosleep(CLOCK_MONOTONIC, 0, &left, &left) == EINTR) continue;
}

// Copies `text` to a buffer of `length` bytes, with a terminating NUL unless the text must be
// unterminated.
void copyText(const std::string& text, bool unterminated, char* buffer, std::uint32_t length) {
  if (length == 0) return;
  const std::size_t room = unterminated ? length : length - 1;
  const std::size_t copied = std::min(text.size(), room);
  std::memcpy(buffer, text.data(), copied);
  if (!unterminated) buffer[copied] = '\0';
}

vuna_status statusOf(const std::exception& error) {
  return dynamic_cast<const std::bad_alloc*>(&error) ? kNoMemory : kFailure;
}

// The result of a call with a null argument, which is counted as misuse.
vuna_status nullArgument(Function function) noexcept {
  try {
    Sdk& sdk = Sdk::instance();
    sdk.count(function);
    return sdk.misuse(function, nullptr, "an argument is null", kBadArgument);
  } catch (const std::exception& error) {
    return statusOf(error);
  }
}

// Plays a fault, or does the work. `deliver` sets the outputs to a number; 0 means "nothing".
// `work` receives the state, and whether the call will report a failure.
template <class Deliver, class Work>
vuna_status play(Sdk& sdk, const Fault* fault, const Deliver& deliver, const Work& work) {
  if (!fault) return work(sdk, false);
  sleepUsec(fault->latency_usec);
  vuna_status done = kVunaSuccess;
  switch (fault->deliver) {
    case Fault::Deliver::untouched:
      break;
    case Fault::Deliver::nothing:
      deliver(0);
      break;
    case Fault::Deliver::number:
      deliver(fault->number);
      break;
    case Fault::Deliver::result:
      done = work(sdk, fault->status != kVunaSuccess);
      break;
  }
  return fault->status != kVunaSuccess ? fault->status : done;
}

// The common code of all functions that return a status.
template <class Deliver, class Work>
vuna_status call(Function function, const Subject& subject, const Deliver& deliver,
                 const Work& work) noexcept {
  try {
    Sdk& sdk = Sdk::instance();
    sdk.count(function);
    if (!sdk.watched(function)) return work(sdk, false);
    const Sdk::Entry entry = sdk.enter(function, subject);
    const vuna_status status = play(sdk, entry.fault, deliver, work);
    char result[16];
    std::snprintf(result, sizeof result, "%u", status);
    sdk.leave(function, subject, entry, result);
    return status;
  } catch (const std::exception& error) {
    return statusOf(error);
  }
}

// The common code of the two functions that return a pointer.
template <class Result, class Work>
Result* callForPointer(Function function, const void* handle, Result* on_failure,
                       const Work& work) noexcept {
  try {
    Sdk& sdk = Sdk::instance();
    sdk.count(function);
    if (!sdk.watched(function)) return work(sdk);
    const Subject subject{handle, {}, {}};
    const Sdk::Entry entry = sdk.enter(function, subject);
    if (entry.fault) sleepUsec(entry.fault->latency_usec);
    const bool works = !entry.fault || entry.fault->deliver == Fault::Deliver::result;
    Result* const result = works ? work(sdk) : nullptr;
    sdk.leave(function, subject, entry, result ? "ok" : "null");
    return result;
  } catch (const std::exception&) {
    return on_failure;
  }
}

constexpr auto kNoOutput = [](std::uint32_t) {};

template <class T>
auto into(T* output) {
  return [output](std::uint32_t number) {
    if constexpr (std::is_pointer_v<T>)
      *output = nullptr;
    else
      *output = static_cast<T>(number);
  };
}

// A query that returns a number from a device's description.
vuna_status capability(Function function, const vuna_devinfo* devinfo, std::uint32_t* output,
                       std::uint32_t Device::*number) {
  if (!output) return nullArgument(function);
  return call(function, {devinfo, {}, {}}, into(output), [&](Sdk& sdk, bool) -> vuna_status {
    const vuna_devinfo* const info = sdk.info(function, devinfo);
    if (!info) return kBadArgument;
    *output = info->device->*number;
    return kVunaSuccess;
  });
}

// Stores a size that is reported to the user.
vuna_status tell(const void* handle, ToldSize size, vuna_status status,
                 const std::uint32_t* output) {
  try {
    Sdk::instance().tell(handle, size, status == kVunaSuccess ? *output : 0);
    return status;
  } catch (const std::exception& error) {
    return statusOf(error);
  }
}

// A query about one slot. `answer` receives the context and the slot. It is not called for empty
// slots.
template <class Deliver, class Answer>
vuna_status slotQuery(Function function, vuna_telemetry_mp* mp, const Subject& subject,
                      const Deliver& deliver, const Answer& answer) {
  return call(function, subject, deliver, [&](Sdk& sdk, bool) -> vuna_status {
    const auto context = sdk.context(function, mp);
    if (!context) return kBadArgument;
    const std::vector<Slot>& slots = context->device().slots;
    if (*subject.slot >= slots.size()) return kVunaSlotEmpty;
    const Slot& slot = slots[*subject.slot];
    if (slot.id_status != kVunaSuccess) return slot.id_status;
    return answer(*context, slot);
  });
}

vuna_status slotNumber(Function function, vuna_telemetry_mp* mp, std::uint32_t slot,
                       std::uint32_t* output, std::uint32_t Slot::*number) {
  if (!output) return nullArgument(function);
  return slotQuery(function, mp, {mp, slot, {}}, into(output),
                   [&](vuna_telemetry_mp&, const Slot& asked) {
                     *output = asked.*number;
                     return kVunaSuccess;
                   });
}

vuna_status readCounters(Function function, vuna_telemetry_mp* mp, std::uint32_t slot,
                         std::uint32_t* count, std::uint32_t* values, bool clear) {
  if (!count || !values) return nullArgument(function);
  return slotQuery(function, mp, {mp, slot, {}}, into(count),
                   [&](vuna_telemetry_mp& context, const Slot& asked) {
                     sleepUsec(asked.read_latency_usec);  // without any lock held
                     const vuna_status status = context.read(slot, clear, count, values);
                     if (status != kWrongState) return status;
                     return Sdk::instance().misuse(function, &context.device().ibdev_name,
                                                   "context is not started", kWrongState);
                   });
}

}  // namespace
}  // namespace simulator

using simulator::Device;
using simulator::Function;
using simulator::Sdk;
using simulator::Slot;

const char* vuna_error_get_name(vuna_status status) {
  return simulator::callForPointer<const char>(
      Function::vuna_error_get_name, nullptr, "VUNA_NO_MEMORY",
      [&](const Sdk& sdk) { return sdk.statusName(status); });
}

vuna_status vuna_log_backend_create_with_file_sdk(std::FILE* stream, vuna_log_backend** backend) {
  if (!backend) return simulator::nullArgument(Function::vuna_log_backend_create_with_file_sdk);
  return simulator::call(Function::vuna_log_backend_create_with_file_sdk, {},
                         simulator::into(backend),
                         [&](Sdk& sdk, bool) { return sdk.log().create(stream, backend); });
}

vuna_status vuna_log_backend_set_sdk_level(vuna_log_backend* backend, std::uint32_t level) {
  return simulator::call(Function::vuna_log_backend_set_sdk_level, {}, simulator::kNoOutput,
                         [&](Sdk& sdk, bool) { return sdk.log().setLevel(backend, level); });
}

vuna_status vuna_devinfo_get_ibdev_name(const vuna_devinfo* devinfo, char* name,
                                        std::uint32_t length) {
  if (!name) return simulator::nullArgument(Function::vuna_devinfo_get_ibdev_name);
  constexpr Function kFunction = Function::vuna_devinfo_get_ibdev_name;
  return simulator::call(
      kFunction, {devinfo, {}, {}}, simulator::kNoOutput, [&](Sdk& sdk, bool) -> vuna_status {
        const vuna_devinfo* const info = sdk.info(kFunction, devinfo);
        if (!info) return simulator::kBadArgument;
        const Device& device = *info->device;
        simulator::copyText(device.ibdev_name, device.unterminated_name, name, length);
        return kVunaSuccess;
      });
}

vuna_status vuna_devinfo_create_list(vuna_devinfo*** list, std::uint32_t* count) {
  if (!list || !count) return simulator::nullArgument(Function::vuna_devinfo_create_list);
  const auto nothing = [&](std::uint32_t) {
    *list = nullptr;
    *count = 0;
  };
  return simulator::call(
      Function::vuna_devinfo_create_list, {}, nothing,
      [&](Sdk& sdk, bool unowned) { return sdk.createList(list, count, unowned); });
}

vuna_status vuna_devinfo_destroy_list(vuna_devinfo** list) {
  return simulator::call(Function::vuna_devinfo_destroy_list, {}, simulator::kNoOutput,
                         [&](Sdk& sdk, bool) { return sdk.destroyList(list); });
}

vuna_status vuna_dev_open(vuna_devinfo* devinfo, vuna_dev** dev) {
  if (!dev) return simulator::nullArgument(Function::vuna_dev_open);
  return simulator::call(Function::vuna_dev_open, {devinfo, {}, {}}, simulator::into(dev),
                         [&](Sdk& sdk, bool unowned) { return sdk.open(devinfo, dev, unowned); });
}

vuna_status vuna_dev_close(vuna_dev* dev) {
  return simulator::call(Function::vuna_dev_close, {dev, {}, {}}, simulator::kNoOutput,
                         [&](Sdk& sdk, bool) { return sdk.close(dev); });
}

vuna_devinfo* vuna_dev_as_devinfo(vuna_dev* dev) {
  return simulator::callForPointer<vuna_devinfo>(Function::vuna_dev_as_devinfo, dev, nullptr,
                                                 [&](Sdk& sdk) { return sdk.asDevinfo(dev); });
}

vuna_status vuna_telemetry_mp_cap_is_supported(const vuna_devinfo* devinfo) {
  constexpr Function kFunction = Function::vuna_telemetry_mp_cap_is_supported;
  return simulator::call(kFunction, {devinfo, {}, {}}, simulator::kNoOutput, [&](Sdk& sdk, bool) {
    const vuna_devinfo* const info = sdk.info(kFunction, devinfo);
    return info ? info->device->multipath_support : simulator::kBadArgument;
  });
}

vuna_status vuna_telemetry_mp_create(vuna_dev* dev, vuna_telemetry_mp** mp) {
  if (!mp) return simulator::nullArgument(Function::vuna_telemetry_mp_create);
  return simulator::call(Function::vuna_telemetry_mp_create, {dev, {}, {}}, simulator::into(mp),
                         [&](Sdk& sdk, bool unowned) { return sdk.create(dev, mp, unowned); });
}

vuna_status vuna_telemetry_mp_destroy(vuna_telemetry_mp* mp) {
  return simulator::call(Function::vuna_telemetry_mp_destroy, {mp, {}, {}}, simulator::kNoOutput,
                         [&](Sdk& sdk, bool) { return sdk.destroy(mp); });
}

vuna_status vuna_telemetry_mp_start(vuna_telemetry_mp* mp) {
  return simulator::call(Function::vuna_telemetry_mp_start, {mp, {}, {}}, simulator::kNoOutput,
                         [&](Sdk& sdk, bool unowned) { return sdk.start(mp, unowned); });
}

vuna_status vuna_telemetry_mp_stop(vuna_telemetry_mp* mp) {
  return simulator::call(Function::vuna_telemetry_mp_stop, {mp, {}, {}}, simulator::kNoOutput,
                         [&](Sdk& sdk, bool) { return sdk.stop(mp); });
}

vuna_status vuna_telemetry_mp_cap_get_max_algo_slots(const vuna_devinfo* devinfo,
                                                     std::uint32_t* max_slots) {
  return simulator::capability(Function::vuna_telemetry_mp_cap_get_max_algo_slots, devinfo,
                               max_slots, &Device::max_algo_slots);
}

vuna_status vuna_telemetry_mp_get_algo_id(vuna_telemetry_mp* mp, std::uint32_t slot,
                                          std::uint32_t* algo_id) {
  return simulator::slotNumber(Function::vuna_telemetry_mp_get_algo_id, mp, slot, algo_id,
                               &Slot::algo_id);
}

vuna_status vuna_telemetry_mp_get_algo_major_version(vuna_telemetry_mp* mp, std::uint32_t slot,
                                                     std::uint32_t* major) {
  return simulator::slotNumber(Function::vuna_telemetry_mp_get_algo_major_version, mp, slot, major,
                               &Slot::major_version);
}

vuna_status vuna_telemetry_mp_get_algo_minor_version(vuna_telemetry_mp* mp, std::uint32_t slot,
                                                     std::uint32_t* minor) {
  return simulator::slotNumber(Function::vuna_telemetry_mp_get_algo_minor_version, mp, slot, minor,
                               &Slot::minor_version);
}

vuna_status vuna_telemetry_mp_get_algo_enable_status(vuna_telemetry_mp* mp, std::uint32_t slot,
                                                     std::uint8_t* algo_enabled,
                                                     std::uint8_t* counters_enabled) {
  if (!algo_enabled || !counters_enabled)
    return simulator::nullArgument(Function::vuna_telemetry_mp_get_algo_enable_status);
  const auto nothing = [&](std::uint32_t) { *algo_enabled = *counters_enabled = 0; };
  return simulator::slotQuery(Function::vuna_telemetry_mp_get_algo_enable_status, mp,
                              {mp, slot, {}}, nothing, [&](vuna_telemetry_mp&, const Slot& asked) {
                                if (asked.enable_status != kVunaSuccess) return asked.enable_status;
                                *algo_enabled = asked.algo_enabled;
                                *counters_enabled = asked.counters_enabled;
                                return kVunaSuccess;
                              });
}

vuna_status vuna_telemetry_mp_cap_get_max_algo_info_len(const vuna_devinfo* devinfo,
                                                        std::uint32_t* length) {
  const vuna_status status =
      simulator::capability(Function::vuna_telemetry_mp_cap_get_max_algo_info_len, devinfo, length,
                            &Device::max_algo_info_len);
  return simulator::tell(devinfo, &ToldSizes::algo_info_len, status, length);
}

vuna_status vuna_telemetry_mp_get_algo_info(vuna_telemetry_mp* mp, std::uint32_t slot, char* info) {
  if (!info) return simulator::nullArgument(Function::vuna_telemetry_mp_get_algo_info);
  return simulator::slotQuery(
      Function::vuna_telemetry_mp_get_algo_info, mp, {mp, slot, {}}, simulator::kNoOutput,
      [&](vuna_telemetry_mp& context, const Slot& asked) {
        simulator::copyText(asked.info, asked.unterminated, info, context.told().algo_info_len);
        return kVunaSuccess;
      });
}

vuna_status vuna_telemetry_mp_get_num_counters(vuna_telemetry_mp* mp, std::uint32_t slot,
                                               std::uint32_t* count) {
  const vuna_status status = simulator::slotNumber(Function::vuna_telemetry_mp_get_num_counters, mp,
                                                   slot, count, &Slot::declared_counters);
  return simulator::tell(mp, &ToldSizes::declared_counters, status, count);
}

vuna_status vuna_telemetry_mp_cap_get_max_counter_info_len(const vuna_devinfo* devinfo,
                                                           std::uint32_t* length) {
  const vuna_status status =
      simulator::capability(Function::vuna_telemetry_mp_cap_get_max_counter_info_len, devinfo,
                            length, &Device::max_counter_info_len);
  return simulator::tell(devinfo, &ToldSizes::counter_info_len, status, length);
}

vuna_status vuna_telemetry_mp_get_counter_info(vuna_telemetry_mp* mp, std::uint32_t slot,
                                               std::uint8_t counter, char* info) {
  if (!info) return simulator::nullArgument(Function::vuna_telemetry_mp_get_counter_info);
  return simulator::slotQuery(
      Function::vuna_telemetry_mp_get_counter_info, mp, {mp, slot, counter}, simulator::kNoOutput,
      [&](vuna_telemetry_mp& context, const Slot& asked) {
        if (counter >= asked.counters.size()) return simulator::kBadArgument;
        simulator::copyText(asked.counters[counter].text, asked.unterminated, info,
                            context.told().counter_info_len);
        return kVunaSuccess;
      });
}

vuna_status vuna_telemetry_mp_cap_get_max_num_counters(const vuna_devinfo* devinfo,
                                                       std::uint32_t* max_num) {
  const vuna_status status =
      simulator::capability(Function::vuna_telemetry_mp_cap_get_max_num_counters, devinfo, max_num,
                            &Device::max_num_counters);
  return simulator::tell(devinfo, &ToldSizes::max_num_counters, status, max_num);
}

vuna_status vuna_telemetry_mp_get_counters(vuna_telemetry_mp* mp, std::uint32_t slot,
                                           std::uint32_t* count, std::uint32_t* values) {
  return simulator::readCounters(Function::vuna_telemetry_mp_get_counters, mp, slot, count, values,
                                 false);
}

vuna_status vuna_telemetry_mp_get_and_clear_counters(vuna_telemetry_mp* mp, std::uint32_t slot,
                                                     std::uint32_t* count, std::uint32_t* values) {
  return simulator::readCounters(Function::vuna_telemetry_mp_get_and_clear_counters, mp, slot,
                                 count, values, true);
}

std::uint32_t vuna_simulator_report(char* text, std::uint32_t size) {
  try {
    const std::string report = Sdk::instance().report();
    if (text) simulator::copyText(report, false, text, size);
    return static_cast<std::uint32_t>(report.size());
  } catch (const std::exception&) {
    return 0;
  }
}
