#include "collector/event_layout.h"

#include <algorithm>

namespace tev::events::multipath {
namespace {

constexpr std::uint64_t kCounterSize = sizeof(std::uint32_t);

// Where the counters that `selected` picks go, in their order, one after the other from `offset`
// on; no more than `room` of them.
template <class Selected>
std::vector<CounterRun> gather(const SlotInfo& slot, std::uint64_t offset, std::uint32_t room,
                               Selected selected) {
  std::vector<CounterRun> runs;
  for (const auto& counter : slot.counters) {
    if (!selected(counter)) continue;
    if (room == 0) break;
    --room;
    const auto index = static_cast<std::uint32_t>(counter.index);
    if (!runs.empty() && runs.back().first_value + runs.back().count == index)
      ++runs.back().count;
    else
      runs.push_back({.first_value = index, .count = 1, .offset = offset});
    offset += kCounterSize;
  }
  return runs;
}

std::vector<std::string_view> counterNames(const SlotInfo& slot, std::uint32_t plane) {
  std::vector<std::string_view> names;
  for (const auto& counter : slot.counters)
    if (counter.is_per_plane && counter.plane == plane) names.push_back(counter.name);
  return names;
}

std::vector<std::uint32_t> planesUnlikeTheFields(const SlotInfo& slot) {
  const auto& names = slot.plane_counter_names;
  const auto described = std::min<std::size_t>(slot.num_plane_counters, names.size());
  const std::vector<std::string_view> expected(
      names.begin(), names.begin() + static_cast<std::ptrdiff_t>(described));
  std::vector<std::uint32_t> planes;
  for (std::uint32_t plane = 0; plane < slot.num_planes; ++plane)
    if (counterNames(slot, plane) != expected) planes.push_back(plane);
  return planes;
}

}  // namespace

EventLayout EventLayout::ofDevice(const SlotInfo& slot, std::size_t name_length) {
  EventLayout layout;
  layout.addField("device_name", "Device Name", "char", 1, name_length);
  const auto counters_offset = layout.size_;
  layout.addCounterFields(slot.device_counter_names, slot.device_counter_descriptions,
                          slot.num_device_counters);
  layout.runs_.push_back(gather(slot, counters_offset, slot.num_device_counters,
                                [](const CounterMeta& counter) { return !counter.is_per_plane; }));
  return layout;
}

EventLayout EventLayout::ofPlane(const SlotInfo& slot, std::size_t name_length) {
  EventLayout layout;
  layout.addField("device_name", "Device Name", "char", 1, name_length);
  layout.addField("plane", "Plane ID", "uint8_t", 1, 1);
  const auto counters_offset = layout.size_;
  layout.addCounterFields(slot.plane_counter_names, slot.plane_counter_descriptions,
                          slot.num_plane_counters);
  for (std::uint32_t plane = 0; plane < slot.num_planes; ++plane)
    layout.runs_.push_back(
        gather(slot, counters_offset, slot.num_plane_counters, [plane](const CounterMeta& counter) {
          return counter.is_per_plane && counter.plane == plane;
        }));
  layout.differing_planes_ = planesUnlikeTheFields(slot);
  return layout;
}

void EventLayout::addField(const char* name, const char* description, const char* type,
                           std::size_t type_size, std::size_t count) {
  fields_.push_back({.field_name = name,
                     .description = description,
                     .type_name = type,
                     .counting_mode = TEV_VALUE_ABSOLUTE,
                     .array_length = static_cast<std::uint16_t>(count)});
  size_ += type_size * count;
}

// An event has room for `count` counters, and as many of them are described as there are names for:
// with names that repeat inside a plane there are fewer.
void EventLayout::addCounterFields(const std::vector<std::string>& names,
                                   const std::vector<std::string>& descriptions,
                                   std::uint32_t count) {
  const auto counters_offset = size_;
  const auto described = std::min<std::size_t>({count, names.size(), descriptions.size()});
  for (std::size_t i = 0; i < described; ++i)
    addField(names[i].c_str(), descriptions[i].c_str(), "uint32_t", kCounterSize, 1);
  size_ = counters_offset + count * kCounterSize;
}

}  // namespace tev::events::multipath
