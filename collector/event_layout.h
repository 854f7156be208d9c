#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>
#include <vector>

#include "collector/slot_info.h"
#include "tev/schema.h"

namespace tev::events::multipath {

// One kind of event of one device: a packed record of the device's name, for plane events the
// plane's number, and 32-bit counters. The schema registers fields(), the sampler writes where they
// stand.
class EventLayout {
 public:
  // `name_length`: bytes of the device-name field. The fields borrow the texts of `slot`.
  static EventLayout ofDevice(const SlotInfo& slot, std::size_t name_length);
  static EventLayout ofPlane(const SlotInfo& slot, std::size_t name_length);

  // Bytes per event.
  std::uint64_t size() const { return size_; }

  // Valid until the texts of the slot change; forgetFields() is to be called before that.
  const std::vector<tev_type_field_info_t>& fields() const { return fields_; }
  void forgetFields() { std::vector<tev_type_field_info_t>().swap(fields_); }

  // Writes the counters of `plane` (device events: 0) out of `values` into a zero-filled event.
  void putCounters(std::uint32_t plane, const std::uint32_t* values, std::byte* event) const {
    const Gathering& gathering = gatherings_[plane];
    const std::span parts(parts_.data() + gathering.first_part, gathering.num_parts);
    std::byte* to = event + counters_offset_;
    if (gathering.of_runs) {
      for (const auto& [first, count] : parts) {
        std::memcpy(to, values + first, count * sizeof *values);
        to += count * sizeof *values;
      }
    } else {
      for (const auto& part : parts) {
        std::memcpy(to, values + part.first_value, sizeof *values);
        to += sizeof *values;
      }
    }
  }

  // Planes whose counters are not, by name and in order, those that the event has fields for: what
  // such a plane lacks stays zero, what it has beyond is cut. Empty for device events.
  const std::vector<std::uint32_t>& differingPlanes() const { return differing_planes_; }

 private:
  void addField(const char* name, const char* description, const char* type, std::size_t type_size,
                std::size_t count);
  void addCounterFields(const std::vector<std::string>& names,
                        const std::vector<std::string>& descriptions, std::uint32_t count);
  template <class Selected>
  void addGathering(const SlotInfo& slot, std::uint32_t room, Selected selected);

  // Values that lie next to each other, as they do in the event.
  struct Part {
    std::uint32_t first_value;  // index into the values
    std::uint32_t count;
  };
  // Where the counters of one event come from: in few long runs, each copied as a whole, or one by
  // one.
  struct Gathering {
    std::uint32_t first_part;
    std::uint32_t num_parts;
    bool of_runs;
  };

  std::vector<tev_type_field_info_t> fields_;
  std::uint64_t size_ = 0;
  std::uint64_t counters_offset_ = 0;  // bytes from the start of the event; then one by the other
  std::vector<Gathering> gatherings_;  // per plane
  std::vector<Part> parts_;            // of all gatherings
  std::vector<std::uint32_t> differing_planes_;
};

}  // namespace tev::events::multipath
