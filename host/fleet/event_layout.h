// How the events of a type lie in memory and in Parquet files.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/events/schema_view.h"

namespace tev::host {

struct EventLayout {
  std::string text;    // names, types and places of all columns: equal for equal layouts
  std::string kind;    // kindOf() the type, as a name of a folder
  std::string digest;  // of the text, 8 hexadecimal digits
  std::size_t event_size = 0;
  std::vector<Column> columns;
};

// Equal layouts are one object.
class LayoutTable {
 public:
  // Null when the type has more columns than a file may have.
  std::shared_ptr<const EventLayout> of(const TypeView& type);

 private:
  std::map<std::string, std::weak_ptr<const EventLayout>> by_text_;
  std::size_t purge_at_ = 64;  // entries
};

}  // namespace tev::host
