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
  layout.addCounters(slot);
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
  layout.addCounters(slot);
  layout.differing_planes_ = planesUnlikeTheFields(slot);
  return layout;
}

// In each event the counters are in their own order. Counters beyond its last field are dropped.
void EventLayout::addCounters(const SlotInfo& slot) {
  const std::uint64_t room = (size_ - counters_offset_) / kCounterSize;
  std::vector<std::vector<std::uint8_t>> indexes(num_events_);
  for (const auto& counter : slot.counters) {
    if (counter.is_per_plane != of_planes_) continue;
    auto& of_event = indexes[of_planes_ ? counter.plane : 0];
    if (of_event.size() < room) of_event.push_back(static_cast<std::uint8_t>(counter.index));
  }
  CopyPlan plan;
  for (std::uint64_t event = 0; event < num_events_; ++event)
    plan.addEvent(indexes[event], static_cast<std::uint32_t>(event * size_ + counters_offset_));
  plan_ = std::make_shared<const CopyPlan>(std::move(plan));
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

// An event has room for `count` counters. The number of described fields is the number of names,
// which is lower when names are repeated within a plane.
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
