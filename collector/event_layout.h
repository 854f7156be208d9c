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

// Values that lie next to each other in what a read fills and in the event: one copy.
struct CounterRun {
  std::uint32_t first_value;  // index into the values
  std::uint32_t count;
  std::uint64_t offset;  // bytes from the start of the event
};

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
    for (const auto& run : runs_[plane]) {
      if (run.count == 1)  // one instruction instead of a call
        std::memcpy(event + run.offset, values + run.first_value, sizeof *values);
      else
        std::memcpy(event + run.offset, values + run.first_value, run.count * sizeof *values);
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

  std::vector<tev_type_field_info_t> fields_;
  std::uint64_t size_ = 0;
  std::vector<std::vector<CounterRun>> runs_;  // per plane
  std::vector<std::uint32_t> differing_planes_;
};

}  // namespace tev::events::multipath
