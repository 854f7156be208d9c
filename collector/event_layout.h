#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "collector/event_buffer.h"
#include "collector/slot_info.h"
#include "tev/schema.h"

namespace tev::events::multipath {

// One kind of event of one device: a packed record of the device's name, for plane events the
// plane's number, and 32-bit counters. The schema registers fields(), the sampler writes samples
// with write(). What write() does is worked out here, once.
class EventLayout {
 public:
  // Of nothing: not to be written.
  EventLayout() = default;

  // One event a sample. `name` is padded to `name_length` bytes, which it does not exceed. The
  // fields borrow the texts of `slot`.
  static EventLayout ofDevice(const SlotInfo& slot, std::string_view name, std::size_t name_length);
  // An event per plane, in order.
  static EventLayout ofPlane(const SlotInfo& slot, std::string_view name, std::size_t name_length);

  // Bytes per event.
  std::uint64_t size() const { return size_; }

  // Events per sample, back to back.
  std::uint32_t eventsPerSample() const { return num_events_; }

  // Valid until the texts of the slot change; forgetFields() is to be called before that.
  const std::vector<tev_type_field_info_t>& fields() const { return fields_; }
  void forgetFields() { std::vector<tev_type_field_info_t>().swap(fields_); }

  // Writes the events of one sample of the device's `values` to where an EventBuffer has them, and
  // zeros into the slack behind the last.
  void write(const std::uint32_t* values, std::byte* events) const {
    writeNames(events);
    const Copies& copies = *copies_;
    for (const auto& [to, count, from] : copies.runs)
      std::memcpy(events + to, values + from, count * sizeof *values);
    for (const auto& [to, from] : copies.fours) {
      const std::uint32_t four[] = {values[from[0]], values[from[1]], values[from[2]],
                                    values[from[3]]};
      std::memcpy(events + to, four, sizeof four);
    }
    for (const auto& [to, from] : copies.singles)
      std::memcpy(events + to, values + from, sizeof *values);
  }

  // Uses the other's list of copies where it is the same: adapters of one kind need but one in the
  // cache.
  void shareCopiesOf(const EventLayout& other) {
    if (copies_ != other.copies_ && *copies_ == *other.copies_) copies_ = other.copies_;
  }

  // Planes whose counters are not, by name and in order, those that the event has fields for: what
  // such a plane lacks stays zero, what it has beyond is cut. Empty for device events.
  const std::vector<std::uint32_t>& differingPlanes() const { return differing_planes_; }

 private:
  EventLayout(std::string_view name, std::size_t name_length);
  void addField(const char* name, const char* description, const char* type, std::size_t type_size,
                std::size_t count);
  void addCounterFields(const std::vector<std::string>& names,
                        const std::vector<std::string>& descriptions, std::uint32_t count);
  void addCounters(const SlotInfo& slot);

  // With copies of the members: the compiler must take every byte that is written for a change of
  // theirs.
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

  // The start of a name, copied as a whole, zeros included: few are longer.
  using NameBlock = std::array<char, EventBuffer::kSlack>;

  // What is copied: from an index into the values, to so many bytes behind the start of the
  // sample's first event.
  struct Run {  // of counters that lie next to each other on both sides
    std::uint32_t to;
    std::uint16_t count;
    std::uint8_t from;
    bool operator==(const Run&) const = default;
  };
  struct Four {  // that lie next to each other in the event
    std::uint32_t to;
    std::array<std::uint8_t, 4> from;
    bool operator==(const Four&) const = default;
  };
  struct Single {
    std::uint32_t to;
    std::uint8_t from;
    bool operator==(const Single&) const = default;
  };
  static_assert(kMaxCounters - 1 <= UINT8_MAX);
  struct Copies {
    std::vector<Run> runs;
    std::vector<Four> fours;
    std::vector<Single> singles;
    bool operator==(const Copies&) const = default;

    // Of one event, whose first counter stands at `to`.
    void addEvent(const std::vector<std::uint8_t>& indexes, std::uint32_t to);
  };

  // What a write needs comes first, close together.
  std::uint64_t size_ = 0;
  std::uint64_t name_length_ = 0;  // bytes; a plane's number follows
  std::uint32_t num_events_ = 0;
  bool of_planes_ = false;
  NameBlock name_{};
  std::shared_ptr<const Copies> copies_;
  std::string long_name_;              // empty for a name that fits into its block
  std::uint64_t counters_offset_ = 0;  // of the first counter in an event; bytes
  std::vector<tev_type_field_info_t> fields_;
  std::vector<std::uint32_t> differing_planes_;
};

}  // namespace tev::events::multipath
