#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "tev/schema.h"

namespace tev::events::multipath {

// A kind of event: the names of its types, and the fields that are their key.
struct EventKind {
  const char* word;       // in messages
  const char* type_name;  // a number is appended when there are several types
  std::span<const char* const> key_fields;
};
extern const EventKind kDeviceEvents;
extern const EventKind kPlaneEvents;

// The types of one kind of event, one per distinct layout among the devices.
class EventTypes {
 public:
  explicit EventTypes(const EventKind& kind) : kind_(kind) {}

  // Adds the layout of the next device. A layout that is already known is not added again.
  void add(std::unique_ptr<tev_type_field_info_t[]> fields, std::size_t count);

  // Adds a type per layout to the schema, in ascending order of signatures. Returns false at the
  // first type that is refused.
  bool registerAll(tev_schema_t& schema);

  // The type of each device's events, in the order of the devices; 0 for a type that was not
  // registered.
  std::vector<std::uint8_t> idsByDevice() const;

  void releaseFields();

 private:
  struct Layout {
    std::unique_ptr<tev_type_field_info_t[]> fields;
    std::size_t count = 0;
    std::uint8_t type_id = 0;
  };

  bool registerOne(tev_schema_t& schema, const std::string& name, Layout& layout);

  const EventKind& kind_;
  std::map<std::uint64_t, Layout> layouts_;  // by signature
  std::vector<std::uint64_t> signatures_;    // by device
};

}  // namespace tev::events::multipath
