#include "collector/event_layout.h"

#include <algorithm>
#include <utility>

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

EventLayout::EventLayout(std::string_view name, std::size_t name_length)
    : name_length_(name_length) {
  name.copy(name_.data(), name_.size());
  if (name.size() > name_.size()) long_name_ = name;
  addField("device_name", "Device Name", "char", 1, name_length);
}

EventLayout EventLayout::ofDevice(const SlotInfo& slot, std::string_view name,
                                  std::size_t name_length) {
  EventLayout layout(name, name_length);
  layout.num_events_ = 1;
  layout.addCounterFields(slot.device_counter_names, slot.device_counter_descriptions,
                          slot.num_device_counters);
  layout.addParts(slot);
  return layout;
}

EventLayout EventLayout::ofPlane(const SlotInfo& slot, std::string_view name,
                                 std::size_t name_length) {
  EventLayout layout(name, name_length);
  layout.num_events_ = slot.num_planes;
  layout.of_planes_ = true;
  layout.addField("plane", "Plane ID", "uint8_t", 1, 1);
  layout.addCounterFields(slot.plane_counter_names, slot.plane_counter_descriptions,
                          slot.num_plane_counters);
  layout.addParts(slot);
  layout.differing_planes_ = planesUnlikeTheFields(slot);
  return layout;
}

// In each event the counters stand in their order; those that it has no room for are left out.
void EventLayout::addParts(const SlotInfo& slot) {
  std::vector<Part> runs;
  std::vector<Part> singles;
  std::vector<std::uint64_t> next(num_events_);  // place in each event
  for (std::uint64_t event = 0; event < num_events_; ++event)
    next[event] = event * size_ + counters_offset_;
  for (const auto& counter : slot.counters) {
    if (counter.is_per_plane != of_planes_) continue;
    const std::uint32_t event = of_planes_ ? counter.plane : 0;
    if (next[event] == (event + 1) * size_) continue;
    const Part part{.from = static_cast<std::uint16_t>(counter.index),
                    .count = 1,
                    .to = static_cast<std::uint32_t>(next[event])};
    next[event] += kCounterSize;
    singles.push_back(part);
    if (!runs.empty() && runs.back().reaches(part))
      ++runs.back().count;
    else
      runs.push_back(part);
  }
  // A copy of a run is a call, which takes as long as some single ones.
  constexpr std::size_t kWorthACall = 8;
  of_runs_ = runs.size() * kWorthACall <= singles.size();
  parts_ = std::move(of_runs_ ? runs : singles);
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
