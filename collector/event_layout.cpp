#include "collector/event_layout.h"

#include <algorithm>

namespace tev::events::multipath {
namespace {

constexpr std::uint64_t kCounterSize = sizeof(std::uint32_t);

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

// Of the counters that `selected` picks, in their order, no more than `room`.
template <class Selected>
void EventLayout::addGathering(const SlotInfo& slot, std::uint32_t room, Selected selected) {
  std::vector<Part> runs;
  std::vector<Part> singles;
  for (const auto& counter : slot.counters) {
    if (!selected(counter)) continue;
    if (singles.size() == room) break;
    const auto index = static_cast<std::uint32_t>(counter.index);
    singles.push_back({.first_value = index, .count = 1});
    if (!runs.empty() && runs.back().first_value + runs.back().count == index)
      ++runs.back().count;
    else
      runs.push_back(singles.back());
  }
  // A copy of a run is a call, which takes as long as some single ones.
  constexpr std::size_t kWorthACall = 8;
  const bool of_runs = runs.size() * kWorthACall <= singles.size();
  const auto& parts = of_runs ? runs : singles;
  gatherings_.push_back({.first_part = static_cast<std::uint32_t>(parts_.size()),
                         .num_parts = static_cast<std::uint32_t>(parts.size()),
                         .of_runs = of_runs});
  parts_.insert(parts_.end(), parts.begin(), parts.end());
}

EventLayout EventLayout::ofDevice(const SlotInfo& slot, std::size_t name_length) {
  EventLayout layout;
  layout.addField("device_name", "Device Name", "char", 1, name_length);
  layout.addCounterFields(slot.device_counter_names, slot.device_counter_descriptions,
                          slot.num_device_counters);
  layout.addGathering(slot, slot.num_device_counters,
                      [](const CounterMeta& counter) { return !counter.is_per_plane; });
  return layout;
}

EventLayout EventLayout::ofPlane(const SlotInfo& slot, std::size_t name_length) {
  EventLayout layout;
  layout.addField("device_name", "Device Name", "char", 1, name_length);
  layout.addField("plane", "Plane ID", "uint8_t", 1, 1);
  layout.addCounterFields(slot.plane_counter_names, slot.plane_counter_descriptions,
                          slot.num_plane_counters);
  for (std::uint32_t plane = 0; plane < slot.num_planes; ++plane)
    layout.addGathering(slot, slot.num_plane_counters, [plane](const CounterMeta& counter) {
      return counter.is_per_plane && counter.plane == plane;
    });
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
  counters_offset_ = size_;
  const auto described = std::min<std::size_t>({count, names.size(), descriptions.size()});
  for (std::size_t i = 0; i < described; ++i)
    addField(names[i].c_str(), descriptions[i].c_str(), "uint32_t", kCounterSize, 1);
  size_ = counters_offset_ + count * kCounterSize;
}

}  // namespace tev::events::multipath
