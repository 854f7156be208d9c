// The types of a type system as lists of columns: composite fields are taken apart, down to values
// of built-in types. All that decoding and printing need to know.
#pragma once

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "tev/schema.h"

namespace tev::host {

// One value, or one array of values, of a built-in type.
struct Column {
  // As printed. Fields of composite ones have dotted names ("port.rx", "port[2].rx"). Unique in its
  // type.
  std::string name;
  std::string description;
  std::uint32_t builtin_id = TEV_TYPE_NONE;
  std::uint32_t counting_mode = TEV_VALUE_ABSOLUTE;
  std::uint64_t offset = 0;        // bytes from the start of the event
  std::uint64_t element_size = 0;  // bytes
  std::uint16_t count = 1;         // elements
  std::uint16_t key = 0;           // 0: no key field; else its position among them, from 1
};

// The names of one type's columns. One that is taken already, also by the columns "timestamp" and
// "type" that every event has, gets "_2" behind it, and so on.
class UniqueNames {
 public:
  std::string add(const std::string& name);

 private:
  std::set<std::string> taken_{"timestamp", "type"};
};

struct TypeView {
  std::string name;
  bool wanted = true;           // its events are written out
  std::uint64_t size = 0;       // bytes of one event
  std::size_t number = 0;       // among all types of the view, from 0
  std::vector<Column> columns;  // those to be written out, in the order of the bytes
  std::vector<Column> keys;     // all key columns, in the order of the key
};

// Made once the plug-in has registered its types; needs the type system no longer.
class SchemaView {
 public:
  // Throws RunError when a type does not hold together.
  explicit SchemaView(const tev_type_system_t& type_system);

  // Null when there is no such type.
  const TypeView* find(std::uint8_t schema_index, std::uint16_t type_index) const;

  // All types, by schema and type index.
  const std::vector<TypeView>& types() const { return types_; }
  std::vector<TypeView>& types() { return types_; }

 private:
  std::vector<TypeView> types_;
  std::vector<std::size_t> first_type_;  // of each schema; one more marks the end
};

}  // namespace tev::host
