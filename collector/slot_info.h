#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tev::events::multipath {

// Slots, counters and planes are 8-bit numbers in the SDK and in the events. Higher numbers are
// ignored.
inline constexpr std::uint32_t kMaxSlots = 256;
inline constexpr std::uint32_t kMaxCounters = 256;
inline constexpr std::uint32_t kMaxPlanes = 256;

// One counter, as described by its description line.
struct CounterMeta {
  std::string name;
  std::string description;
  bool is_per_plane = false;
  std::uint8_t plane = 0;   // 0 for a counter of the whole device
  std::uint64_t index = 0;  // in the SDK's list, and in the values that a read fills
};

// The active algorithm slot of a device. Filled once during set-up, then only read.
struct SlotInfo {
  std::uint8_t slot = 0;
  std::uint32_t algo_id = 0;
  std::uint32_t algo_major = 0;
  std::uint32_t algo_minor = 0;
  std::string algo_info;
  std::uint32_t num_counters = 0;          // as the slot declares
  std::vector<std::string> counter_infos;  // description lines, in the SDK's order
  std::vector<CounterMeta> counters;       // one per line, same order
  std::uint32_t num_device_counters = 0;
  std::uint32_t num_plane_counters = 0;  // those of plane 0
  std::uint32_t num_planes = 0;          // highest plane plus one
  std::vector<std::string> device_counter_names;
  std::vector<std::string> device_counter_descriptions;
  std::vector<std::string> plane_counter_names;  // without duplicates, in order of first appearance
  std::vector<std::string> plane_counter_descriptions;
};

}  // namespace tev::events::multipath
