// The types of all schemas as lists of columns: composite fields are split into values of built-in
// types. This is all that decoding and printing need to know.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "tev/schema.h"

namespace tev::host {

struct DeclaredSchema;

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
  std::uint16_t key = 0;           // 0: not a key field; else the position in the key, from 1
};

// The names of one type's columns. A name that is already taken gets "_2" appended, and so on. The
// names "timestamp" and "type" are always taken: every event has these columns.
class UniqueNames {
 public:
  std::string add(const std::string& name);

 private:
  std::map<std::string, std::size_t> last_number_{{"timestamp", 1}, {"type", 1}};
};

struct TypeView {
  std::string name;
  std::uint64_t size = 0;       // bytes of one event
  std::size_t number = 0;       // among all types of the view, from 0
  std::vector<Column> columns;  // in the order of the bytes
  std::vector<Column> keys;     // the key columns, in the order of the key
};

// Does not change after it has been made. Events point to its types, so it can be moved but not
// copied.
class SchemaView {
 public:
  struct Schema {
    std::string name;  // printable
    std::string id;    // 32 hexadecimal digits
    std::string text;  // JSON (docs/formats.md); empty without types
  };

  // From the types that are registered in a type system, which is not needed afterwards.
  // Throws RunError when a type is broken.
  static SchemaView fromTypeSystem(const tev_type_system_t& type_system);

  // From the JSON texts of schemas (docs/formats.md), in the order of their indexes. An empty text
  // stands for a schema without types. Throws RunError when a text is broken.
  static SchemaView fromJson(std::span<const std::string> texts);

  SchemaView(SchemaView&&) = default;
  SchemaView& operator=(SchemaView&&) = default;

  // Null when there is no such type.
  const TypeView* find(std::uint8_t schema_index, std::uint16_t type_index) const;

  // All types, by schema and type index.
  const std::vector<TypeView>& types() const { return types_; }

  const std::vector<Schema>& schemas() const { return schemas_; }

  // The schema that the type belongs to.
  const Schema& schemaOf(const TypeView& type) const;

 private:
  explicit SchemaView(const std::vector<DeclaredSchema>& schemas);

  std::vector<Schema> schemas_;
  std::vector<TypeView> types_;
  std::vector<std::size_t> first_type_;  // of each schema; one more marks the end
};

}  // namespace tev::host
