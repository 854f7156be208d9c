#pragma once

#include <cstdint>
#include <string>

#include "collector/api.h"
#include "collector/slot_info.h"

namespace tev::events::multipath {

// Reads the algorithm slots of one device. Every failure is logged, and the first one is the reason
// why the device is left out.
class SlotReader {
 public:
  // All arguments must outlive the reader. `name` is used in messages. `reason` is set by a
  // failure.
  SlotReader(const Api& api, vuna_dev* device, vuna_telemetry_mp* context, const char* name,
             std::string& reason)
      : api_(api), device_(device), context_(context), name_(name), reason_(reason) {}

  // Finds the slot whose algorithm is enabled together with its counters, and reads it. False
  // when such a slot does not exist or cannot be read. Throws std::length_error for a text that
  // does not fit into memory, and what parseCounters() throws.
  bool readActiveSlot(SlotInfo& info) const;

  // Reads the slot with this number, which has this algorithm. Returns and throws as above.
  bool readSlot(SlotInfo& info, std::uint8_t slot, const vuna_devinfo* devinfo,
                std::uint32_t algo_id) const;

 private:
  enum class SlotState { kActive, kPassedOver, kWithoutCounters, kUnreadable };
  SlotState examine(std::uint32_t slot, std::uint32_t& algo_id) const;
  // Whether the SDK answered; a refusal is logged.
  bool toldOfSlot(vuna_status status, const char* what, unsigned slot) const;
  bool toldOfDevice(vuna_status status, const char* what) const;

  const Api& api_;
  vuna_dev* device_;
  vuna_telemetry_mp* context_;
  const char* name_;
  std::string& reason_;
};

}  // namespace tev::events::multipath
