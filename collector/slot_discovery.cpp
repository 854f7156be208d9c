// Finds the algorithm slot of a device that is running with its counters on, and reads what it says
// about itself.

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#include "collector/collector.h"
#include "src/support/malloc_ptr.h"
#include "tev/logger.h"

namespace tev::events::multipath {
namespace {

// A text that the SDK writes without being told the length: a zeroed buffer of exactly the length
// that it reported, read up to the first NUL and never past the end.
class TextBuffer {
 public:
  explicit TextBuffer(std::uint32_t length)
      // One byte at the least: what a zero length is asked to hold must still have an address.
      : length_(std::max(length, 1u)), text_(static_cast<char*>(std::calloc(length_, 1))) {
    if (!text_) throw std::bad_alloc();
  }

  char* data() { return text_.get(); }

  // Cuts an unterminated text by its last byte.
  void terminate() { text_.get()[length_ - 1] = '\0'; }

  // Removes a terminated text, so that nothing of it shows in the next.
  void clear() { std::memset(text_.get(), 0, std::strlen(text_.get())); }

 private:
  std::uint32_t length_;
  support::MallocPtr<char> text_;
};

enum class SlotState { kActive, kPassedOver, kUnreadable };

// Looks at one slot, and logs what it finds. `algo_id` is set when the slot holds an algorithm.
SlotState examineSlot(const Api& api, const Collector::DevCtx& dev, std::uint32_t slot,
                      std::uint32_t& algo_id) {
  const char* const name = dev.name.c_str();

  algo_id = 0;
  if (const auto status = api.vuna_telemetry_mp_get_algo_id(dev.context, slot, &algo_id)) {
    if (status == kVunaSlotEmpty) {
      TEV_LOG_DEBUG("[multipath] slot %u of device %s is empty", slot, name);
      return SlotState::kPassedOver;
    }
    TEV_LOG_WARNING("[multipath] Could not get algo ID for slot %u of device %s: %s", slot, name,
                    api.errorName(status));
    return SlotState::kUnreadable;
  }

  std::uint8_t algo_enabled = 0;
  std::uint8_t counters_enabled = 0;
  if (const auto status = api.vuna_telemetry_mp_get_algo_enable_status(
          dev.context, slot, &algo_enabled, &counters_enabled)) {
    if (status == kVunaSlotInvalid) {
      TEV_LOG_DEBUG("[multipath] slot %u of device %s is invalid", slot, name);
      return SlotState::kPassedOver;
    }
    TEV_LOG_WARNING("[multipath] Could not get algo enable status for slot %u of device %s: %s",
                    slot, name, api.errorName(status));
    return SlotState::kUnreadable;
  }

  if (!algo_enabled) {
    TEV_LOG_DEBUG("[multipath] Found active algo slot %u for device %s but algo is not enabled",
                  slot, name);
    return SlotState::kPassedOver;
  }
  if (!counters_enabled) {
    // Louder than the case above: an algorithm that runs uncounted is for the operator to see.
    TEV_LOG_WARNING(
        "[multipath] Found active algo slot %u for device %s but counters are not enabled", slot,
        name);
    return SlotState::kPassedOver;
  }
  return SlotState::kActive;
}

}  // namespace

bool Collector::setActiveAlgoSlotInfo(DevCtx& dev) {
  const char* const name = dev.name.c_str();
  const vuna_devinfo* const devinfo = api_.vuna_dev_as_devinfo(dev.device);
  if (!devinfo) {
    TEV_LOG_WARNING("[multipath] Could not get device info for device %s", name);
    return false;
  }

  std::uint32_t max_slots = 0;
  if (const auto status = api_.vuna_telemetry_mp_cap_get_max_algo_slots(devinfo, &max_slots)) {
    TEV_LOG_WARNING("[multipath] Could not get max algo slots for device %s: %s", name,
                    api_.errorName(status));
    return false;
  }
  if (max_slots > kMaxSlots)
    TEV_LOG_WARNING("[multipath] Device %s reports %u algo slots, looking at the first %u", name,
                    max_slots, kMaxSlots);

  for (std::uint32_t slot = 0; slot < std::min(max_slots, kMaxSlots); ++slot) {
    std::uint32_t algo_id = 0;
    switch (examineSlot(api_, dev, slot, algo_id)) {
      case SlotState::kPassedOver:
        continue;
      case SlotState::kUnreadable:
        return false;
      case SlotState::kActive:
        TEV_LOG_DEBUG("[multipath] Found active algo slot %u for device %s", slot, name);
        if (setSlotInfo(dev, static_cast<unsigned char>(slot), devinfo, algo_id)) return true;
        TEV_LOG_WARNING("[multipath] Could not fill up slot info for device %s", name);
        return false;
    }
  }
  TEV_LOG_WARNING("[multipath] No active algo slot found for device %s", name);
  return false;
}

bool Collector::setSlotInfo(DevCtx& dev, unsigned char slot, const vuna_devinfo* devinfo,
                            unsigned int algo_id) {
  const char* const name = dev.name.c_str();
  const unsigned number = slot;
  // Whether the SDK had an answer; logged when it had none.
  const auto slot_told = [&](vuna_status status, const char* what) {
    if (status != kVunaSuccess)
      TEV_LOG_WARNING("[multipath] Could not get %s for slot %u of device %s: %s", what, number,
                      name, api_.errorName(status));
    return status == kVunaSuccess;
  };
  const auto device_told = [&](vuna_status status, const char* what) {
    if (status != kVunaSuccess)
      TEV_LOG_WARNING("[multipath] Could not get %s for device %s: %s", what, name,
                      api_.errorName(status));
    return status == kVunaSuccess;
  };

  SlotInfo& info = dev.slot_info;
  info.slot = slot;

  std::uint32_t major = 0;
  std::uint32_t minor = 0;
  if (!slot_told(api_.vuna_telemetry_mp_get_algo_major_version(dev.context, slot, &major),
                 "algo major version") ||
      !slot_told(api_.vuna_telemetry_mp_get_algo_minor_version(dev.context, slot, &minor),
                 "algo minor version"))
    return false;
  const std::string version = std::to_string(major) + "." + std::to_string(minor);
  TEV_LOG_INFO("[multipath] Device %s: algo_id=%u, algo_version=%s", name, algo_id,
               version.c_str());

  std::uint32_t info_len = 0;
  if (!device_told(api_.vuna_telemetry_mp_cap_get_max_algo_info_len(devinfo, &info_len),
                   "max algo info len"))
    return false;
  if (info_len == 0) {
    TEV_LOG_WARNING("[multipath] Max algo info len for device %s is 0", name);
    return false;
  }
  TextBuffer algo_info(info_len);
  if (!slot_told(api_.vuna_telemetry_mp_get_algo_info(dev.context, slot, algo_info.data()),
                 "algo info"))
    return false;
  algo_info.terminate();
  info.algo_info = algo_info.data();

  info.num_counters = 0;
  if (!slot_told(api_.vuna_telemetry_mp_get_num_counters(dev.context, slot, &info.num_counters),
                 "num counters"))
    return false;
  std::uint32_t counter_len = 0;
  if (!device_told(api_.vuna_telemetry_mp_cap_get_max_counter_info_len(devinfo, &counter_len),
                   "max counter info len"))
    return false;
  if (info.num_counters > kMaxCounters)
    TEV_LOG_WARNING(
        "[multipath] Slot %u of device %s declares %u counters, looking at the first %u", number,
        name, info.num_counters, kMaxCounters);

  TextBuffer counter_info(counter_len);
  for (std::uint32_t counter = 0; counter < std::min(info.num_counters, kMaxCounters); ++counter) {
    if (const auto status = api_.vuna_telemetry_mp_get_counter_info(
            dev.context, slot, static_cast<std::uint8_t>(counter), counter_info.data())) {
      TEV_LOG_WARNING(
          "[multipath] Could not get counter info for counter %u of slot %u of device %s: %s",
          counter, number, name, api_.errorName(status));
      return false;
    }
    counter_info.terminate();
    TEV_LOG_DEBUG("[multipath] Counter info #%u of slot %u of device %s: %s", counter, number, name,
                  counter_info.data());
    info.counter_infos.emplace_back(counter_info.data());
    counter_info.clear();
  }

  parseCounterMeta(info);
  return true;
}

}  // namespace tev::events::multipath
