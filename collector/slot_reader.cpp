#include "collector/slot_reader.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>
#include <string>

#include "collector/counter_parser.h"
#include "collector/listed_device.h"
#include "src/support/malloc_ptr.h"
#include "tev/logger.h"

namespace tev::events::multipath {
namespace {

// A buffer for a text that the SDK writes without knowing the buffer's length. The buffer is zeroed
// and has exactly the length that the SDK reported. It is read up to the first NUL, and never past
// its end.
class TextBuffer {
 public:
  explicit TextBuffer(std::uint32_t length)
      // At least one byte, because a buffer of length zero must also have an address.
      : length_(std::max(length, 1u)), text_(static_cast<char*>(std::calloc(length_, 1))) {
    if (text_) return;
    if (length_ <= kOrdinaryLength) throw std::bad_alloc();
    throw std::length_error("no memory for a text of " + std::to_string(length_) + " bytes");
  }

  char* data() { return text_.get(); }

  // Replaces the last byte by a NUL, in case the text is unterminated.
  void terminate() { text_.get()[length_ - 1] = '\0'; }

  // Clears a terminated text, so that no part of it appears in the next one.
  void clear() { std::memset(text_.get(), 0, std::strlen(text_.get())); }

 private:
  // A text of at most this length is normal. If it cannot be allocated, the machine is short of
  // memory.
  static constexpr std::uint32_t kOrdinaryLength = 1 << 20;

  std::uint32_t length_;
  support::MallocPtr<char> text_;
};

}  // namespace

// Checks one slot and logs its state. `algo_id` is set when the slot has an algorithm.
SlotReader::SlotState SlotReader::examine(std::uint32_t slot, std::uint32_t& algo_id) const {
  algo_id = 0;
  if (const auto status = api_.vuna_telemetry_mp_get_algo_id(context_, slot, &algo_id)) {
    if (status == kVunaSlotEmpty) {
      TEV_LOG_DEBUG("[multipath] slot %u of device %s is empty", slot, name_);
      return SlotState::kPassedOver;
    }
    reason_ = logReason(TEV_LEVEL_WARNING, "Could not get algo ID for slot %u of device %s: %s",
                        slot, name_, api_.errorName(status));
    return SlotState::kUnreadable;
  }

  std::uint8_t algo_enabled = 0;
  std::uint8_t counters_enabled = 0;
  if (const auto status = api_.vuna_telemetry_mp_get_algo_enable_status(
          context_, slot, &algo_enabled, &counters_enabled)) {
    if (status == kVunaSlotInvalid) {
      TEV_LOG_DEBUG("[multipath] slot %u of device %s is invalid", slot, name_);
      return SlotState::kPassedOver;
    }
    reason_ = logReason(TEV_LEVEL_WARNING,
                        "Could not get algo enable status for slot %u of device %s: %s", slot,
                        name_, api_.errorName(status));
    return SlotState::kUnreadable;
  }

  if (!algo_enabled) {
    TEV_LOG_DEBUG("[multipath] Found active algo slot %u for device %s but algo is not enabled",
                  slot, name_);
    return SlotState::kPassedOver;
  }
  if (!counters_enabled) {
    // A higher level than above, because the operator should know about an algorithm that runs
    // without counters.
    TEV_LOG_WARNING(
        "[multipath] Found active algo slot %u for device %s but counters are not enabled", slot,
        name_);
    return SlotState::kWithoutCounters;
  }
  return SlotState::kActive;
}

bool SlotReader::readActiveSlot(SlotInfo& info) const {
  const vuna_devinfo* const devinfo = api_.vuna_dev_as_devinfo(device_);
  if (!devinfo) {
    reason_ = logReason(TEV_LEVEL_WARNING, "Could not get device info for device %s", name_);
    return false;
  }

  std::uint32_t max_slots = 0;
  if (const auto status = api_.vuna_telemetry_mp_cap_get_max_algo_slots(devinfo, &max_slots)) {
    reason_ = logReason(TEV_LEVEL_WARNING, "Could not get max algo slots for device %s: %s", name_,
                        api_.errorName(status));
    return false;
  }
  if (max_slots > kMaxSlots)
    TEV_LOG_WARNING("[multipath] Device %s reports %u algo slots, looking at the first %u", name_,
                    max_slots, kMaxSlots);

  std::string without_counters;
  for (std::uint32_t slot = 0; slot < std::min(max_slots, kMaxSlots); ++slot) {
    std::uint32_t algo_id = 0;
    switch (examine(slot, algo_id)) {
      case SlotState::kPassedOver:
        continue;
      case SlotState::kWithoutCounters:
        without_counters = "; the counters of slot " + std::to_string(slot) + " are not enabled";
        continue;
      case SlotState::kUnreadable:
        return false;
      case SlotState::kActive:
        TEV_LOG_DEBUG("[multipath] Found active algo slot %u for device %s", slot, name_);
        if (readSlot(info, static_cast<std::uint8_t>(slot), devinfo, algo_id)) return true;
        TEV_LOG_WARNING("[multipath] Could not fill up slot info for device %s", name_);
        return false;
    }
  }
  reason_ = logReason(TEV_LEVEL_WARNING, "No active algo slot found for device %s", name_) +
            without_counters;
  return false;
}

bool SlotReader::toldOfSlot(vuna_status status, const char* what, unsigned slot) const {
  if (status == kVunaSuccess) return true;
  reason_ = logReason(TEV_LEVEL_WARNING, "Could not get %s for slot %u of device %s: %s", what,
                      slot, name_, api_.errorName(status));
  return false;
}

bool SlotReader::toldOfDevice(vuna_status status, const char* what) const {
  if (status == kVunaSuccess) return true;
  reason_ = logReason(TEV_LEVEL_WARNING, "Could not get %s for device %s: %s", what, name_,
                      api_.errorName(status));
  return false;
}

bool SlotReader::readSlot(SlotInfo& info, std::uint8_t slot, const vuna_devinfo* devinfo,
                          std::uint32_t algo_id) const {
  info.slot = slot;
  info.algo_id = algo_id;
  if (!toldOfSlot(api_.vuna_telemetry_mp_get_algo_major_version(context_, slot, &info.algo_major),
                  "algo major version", slot) ||
      !toldOfSlot(api_.vuna_telemetry_mp_get_algo_minor_version(context_, slot, &info.algo_minor),
                  "algo minor version", slot))
    return false;
  const std::string version =
      std::to_string(info.algo_major) + "." + std::to_string(info.algo_minor);
  TEV_LOG_INFO("[multipath] Device %s: algo_id=%u, algo_version=%s", name_, algo_id,
               version.c_str());

  std::uint32_t info_len = 0;
  if (!toldOfDevice(api_.vuna_telemetry_mp_cap_get_max_algo_info_len(devinfo, &info_len),
                    "max algo info len"))
    return false;
  if (info_len == 0) {
    reason_ = logReason(TEV_LEVEL_WARNING, "Max algo info len for device %s is 0", name_);
    return false;
  }
  TextBuffer algo_info(info_len);
  if (!toldOfSlot(api_.vuna_telemetry_mp_get_algo_info(context_, slot, algo_info.data()),
                  "algo info", slot))
    return false;
  algo_info.terminate();
  info.algo_info = algo_info.data();

  info.num_counters = 0;
  if (!toldOfSlot(api_.vuna_telemetry_mp_get_num_counters(context_, slot, &info.num_counters),
                  "num counters", slot))
    return false;
  std::uint32_t counter_len = 0;
  if (!toldOfDevice(api_.vuna_telemetry_mp_cap_get_max_counter_info_len(devinfo, &counter_len),
                    "max counter info len"))
    return false;
  if (info.num_counters > kMaxCounters)
    TEV_LOG_WARNING(
        "[multipath] Slot %u of device %s declares %u counters, looking at the first %u",
        unsigned{slot}, name_, info.num_counters, kMaxCounters);

  TextBuffer counter_info(counter_len);
  for (std::uint32_t counter = 0; counter < std::min(info.num_counters, kMaxCounters); ++counter) {
    if (const auto status = api_.vuna_telemetry_mp_get_counter_info(
            context_, slot, static_cast<std::uint8_t>(counter), counter_info.data())) {
      reason_ = logReason(TEV_LEVEL_WARNING,
                          "Could not get counter info for counter %u of slot %u of device %s: %s",
                          counter, unsigned{slot}, name_, api_.errorName(status));
      return false;
    }
    counter_info.terminate();
    TEV_LOG_DEBUG("[multipath] Counter info #%u of slot %u of device %s: %s", counter,
                  unsigned{slot}, name_, counter_info.data());
    info.counter_infos.emplace_back(counter_info.data());
    counter_info.clear();
  }

  parseCounters(info);
  return true;
}

}  // namespace tev::events::multipath
