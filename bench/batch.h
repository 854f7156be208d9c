// Event blocks of devices with planes, as a plug-in delivers them.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "host/events/event_source.h"
#include "host/events/schema_view.h"
#include "host/figures/counting_options.h"
#include "tev/schema.h"
#include "tev/serializer.h"

namespace tev::bench {

inline constexpr std::uint32_t kDeviceCounters = 32;
inline constexpr std::uint32_t kPlanes = 4;
inline constexpr std::uint32_t kPlaneCounters = 16;
inline constexpr std::uint32_t kValuesPerDevice = kDeviceCounters + kPlanes * kPlaneCounters;

inline void addType(tev_schema_t* schema, const char* name, std::uint32_t counters, bool is_plane) {
  std::vector<std::string> names;
  for (std::uint32_t i = 0; i < counters; ++i) names.push_back("counter_" + std::to_string(i));
  std::vector<tev_type_field_info_t> fields{{"device_name", nullptr, "char", 0, 8}};
  if (is_plane) fields.push_back({"plane", nullptr, "uint8_t", 0, 1});
  for (const std::string& one : names) fields.push_back({one.c_str(), nullptr, "uint32_t", 0, 1});
  std::uint8_t index = 0;
  const char* keys[] = {"device_name", "plane"};
  tev_schema_add_type(schema, name, fields.data(), fields.size(), &index);
  tev_schema_set_field_indexes(schema, index, keys, is_plane ? 2 : 1);
}

inline host::SchemaView makeSchema() {
  tev_type_system_t* const types = tev_create_type_system();
  tev_schema_t* const schema = tev_type_system_add_schema(types, "bench", 1, nullptr);
  addType(schema, "device", kDeviceCounters, false);
  addType(schema, "plane", kPlaneCounters, true);
  tev_type_system_update_md5_hashes(types);
  host::SchemaView view = host::SchemaView::fromTypeSystem(*types);
  tev_destroy_type_system(types);
  return view;
}

// A batch of samples whose values grow from one call of advance() to the next. The counters of each
// plane grow faster than those of the plane before.
class Batch {
 public:
  Batch(std::uint32_t devices, int passes, std::uint64_t step_usec)
      : devices_(devices), passes_(passes), step_usec_(step_usec) {
    advance();
  }

  void advance() {
    bytes_.clear();
    for (const bool planes : {false, true})
      for (std::uint32_t device = 0; device < devices_; ++device)
        for (int pass = 0; pass < passes_; ++pass)
          for (std::uint32_t plane = 0; plane < (planes ? kPlanes : 1); ++plane)
            addEvent(planes, device, plane, pass_ + static_cast<std::uint64_t>(pass));
    pass_ += static_cast<std::uint64_t>(passes_);
  }

  host::Blocks blocks() const { return bytes_; }
  double values() const { return passes_ * static_cast<double>(devices_) * kValuesPerDevice; }

  // The time stamps of the first and of the last sample, since the Unix epoch.
  std::uint64_t firstUsec() const { return stamp(pass_ - static_cast<std::uint64_t>(passes_)); }
  std::uint64_t lastUsec() const { return stamp(pass_ - 1); }

 private:
  std::uint64_t stamp(std::uint64_t pass) const {
    return 1'700'000'000'000'000 + pass * step_usec_;
  }

  template <class Value>
  void add(const Value& value) {
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&value);
    bytes_.insert(bytes_.end(), bytes, bytes + sizeof value);
  }

  void addEvent(bool is_plane, std::uint32_t device, std::uint32_t plane, std::uint64_t pass) {
    const std::size_t begin = bytes_.size();
    bytes_.resize(begin + TEV_EVENT_BLOCK_HEADER_SIZE);
    std::uint8_t* const header = &bytes_[begin];
    const std::uint64_t timestamp = stamp(pass);
    constexpr std::uint8_t kMagic[] = {'T', 'E', 'V', 'E'};
    std::memcpy(header, kMagic, sizeof kMagic);
    std::memcpy(header + TEV_EVENT_BLOCK_TIMESTAMP_OFFSET, &timestamp, sizeof timestamp);
    header[TEV_EVENT_BLOCK_TYPE_INDEX_OFFSET] = is_plane;
    header[TEV_EVENT_BLOCK_COUNT_OFFSET] = 1;
    char name[8] = "dev";
    name[3] = static_cast<char>('A' + device / 26);
    name[4] = static_cast<char>('a' + device % 26);
    add(name);
    if (is_plane) add(static_cast<std::uint8_t>(plane));
    // One field in eight is a gauge.
    for (std::uint32_t i = 0; i < (is_plane ? kPlaneCounters : kDeviceCounters); ++i)
      add(static_cast<std::uint32_t>(i % 8 == 7 ? 50 + (pass + i) % 20
                                                : pass * (i + 1) * (plane + 1) * 100));
  }

  std::uint32_t devices_;
  int passes_;
  std::uint64_t step_usec_;
  std::uint64_t pass_ = 0;
  std::vector<std::uint8_t> bytes_;
};

// The kinds of the fields in a batch.
inline host::CountingOptions knownKinds() {
  return {.counters = {"^"}, .gauges = {"7$", "15$", "23$", "31$"}};
}

}  // namespace tev::bench
