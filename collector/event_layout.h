#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "collector/copy_plan.h"
#include "collector/event_buffer.h"
#include "collector/slot_info.h"
#include "tev/schema.h"

namespace tev::events::multipath {

// One kind of event of one device: a packed record of the device's name, for plane events the
// plane's number, and 32-bit counters. The schema registers fields(), and the sampler writes
// samples with write(). The copies that write() makes are computed once, at construction.
class EventLayout {
 public:
  // An empty layout, which must not be written.
  EventLayout() = default;

  // One event per sample. `name` is padded to `name_length` bytes and must not be longer. The
  // fields point to the texts of `slot`.
  static EventLayout ofDevice(const SlotInfo& slot, std::string_view name, std::size_t name_length);
  // One event per plane, in the order of the planes.
  static EventLayout ofPlane(const SlotInfo& slot, std::string_view name, std::size_t name_length);

  // Bytes per event.
  std::uint64_t size() const { return size_; }

  // Events per sample; they are contiguous.
  std::uint32_t eventsPerSample() const { return num_events_; }

  // Valid until the texts of the slot change. Call forgetFields() before they do.
  const std::vector<tev_type_field_info_t>& fields() const { return fields_; }
  void forgetFields() { std::vector<tev_type_field_info_t>().swap(fields_); }

  // Writes the events of one sample, made from the device's `values`, to their place in an
  // EventBuffer, and zeros to the slack after the last event.
  void write(const std::uint32_t* values, std::byte* events) const {
    writeNames(events);
    plan_->copy(values, events);
  }

  // Shares the copy plan of `other` if both plans are equal. Adapters of one kind then need only
  // one plan in the cache.
  void sharePlanOf(const EventLayout& other) {
    if (plan_ != other.plan_ && *plan_ == *other.plan_) plan_ = other.plan_;
  }

  // The planes whose counters differ, by name or order, from the fields of the event. Counters
  // that such a plane lacks are zero, and counters beyond the fields are dropped. Empty for
  // device events.
  const std::vector<std::uint32_t>& differingPlanes() const { return differing_planes_; }

 private:
  EventLayout(std::string_view name, std::size_t name_length);
  void addField(const char* name, const char* description, const char* type, std::size_t type_size,
                std::size_t count);
  void addCounterFields(const std::vector<std::string>& names,
                        const std::vector<std::string>& descriptions, std::uint32_t count);
  void addCounters(const SlotInfo& slot);

  // Takes copies of the members, because the compiler must assume that every byte written may
  // change a member.
  void writeNames(std::byte* event) const {
    const std::uint64_t size = size_;
    const std::uint64_t name_length = name_length_;
    const bool of_planes = of_planes_;
    const NameBlock name = name_;
    for (std::uint32_t number = 0, end = num_events_; number < end; ++number, event += size) {
      std::memcpy(event, name.data(), name.size());
      if (name_length > name.size()) std::memcpy(event, long_name_.data(), long_name_.size());
      if (of_planes) event[name_length] = static_cast<std::byte>(number);
    }
  }

  // The start of a name, padded with zeros and copied as one block. Most names fit into it.
  using NameBlock = std::array<char, EventBuffer::kSlack>;

  // The members that a write needs are first, to be close together in the cache.
  std::uint64_t size_ = 0;
  std::uint64_t name_length_ = 0;  // bytes; a plane's number follows
  std::uint32_t num_events_ = 0;
  bool of_planes_ = false;
  NameBlock name_{};
  std::shared_ptr<const CopyPlan> plan_;
  std::string long_name_;              // empty for a name that fits into its block
  std::uint64_t counters_offset_ = 0;  // of the first counter in an event; bytes
  std::vector<tev_type_field_info_t> fields_;
  std::vector<std::uint32_t> differing_planes_;
};

}  // namespace tev::events::multipath
