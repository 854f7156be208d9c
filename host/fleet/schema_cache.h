// The schemas of a fleet.
#pragma once

#include <chrono>
#include <cstddef>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/bus/subscription.h"
#include "host/events/schema_view.h"
#include "host/fleet/event_layout.h"

namespace tev::host {

// Describes the events of all messages with the same list of schema ids.
struct FleetSchema {
  SchemaView view;
  std::vector<std::shared_ptr<const EventLayout>> layouts;  // by the type's number; may be null
  std::size_t bytes = 0;                                    // of memory, estimated
};

// Whether the text is that of the schema with this id.
bool hasSchemaId(const std::string& text, const std::string& id);

class SchemaCache {
 public:
  static constexpr std::size_t kMostBytes = std::size_t{256} << 20;  // of all schemas together
  static constexpr std::size_t kLargest = std::size_t{32} << 20;     // bytes of one

  // A schema that is not there yet is waited for up to `patience`. `shelf` must outlive this.
  SchemaCache(SchemaShelf& shelf, std::chrono::milliseconds patience)
      : shelf_(shelf), patience_(patience), left_(patience) {}

  // Throws Rejected.
  std::shared_ptr<const FleetSchema> of(const std::vector<std::string>& ids);

 private:
  struct Entry {
    std::string key;
    std::shared_ptr<const FleetSchema> schema;
  };

  std::string textOf(const std::string& id);
  std::string find(const std::string& id);
  std::shared_ptr<const FleetSchema> make(const std::vector<std::string>& ids);
  void dropOld();

  SchemaShelf& shelf_;
  std::chrono::milliseconds patience_;
  std::chrono::milliseconds left_;  // of the patience, which comes back slowly
  std::chrono::steady_clock::time_point last_wait_{};
  LayoutTable layouts_;
  std::list<Entry> entries_;  // the one that was used last first
  std::unordered_map<std::string, std::list<Entry>::iterator> by_key_;
  std::size_t bytes_ = 0;
  struct Broken {
    std::size_t hash;  // of the text
    std::string reason;
  };
  std::map<std::string, Broken> broken_;  // by id
  std::set<std::string> missing_;         // ids that were waited for
};

}  // namespace tev::host
