// A schema as it was declared, before its types are split into columns.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tev/schema.h"

namespace tev::host {

struct DeclaredField {
  std::string name;         // UTF-8
  std::string description;  // printable
  std::uint32_t builtin_id = TEV_TYPE_NONE;
  std::size_t composite = 0;  // when there is no built-in type: index of an earlier type
  std::uint32_t counting_mode = TEV_VALUE_ABSOLUTE;
  std::uint16_t count = 1;         // elements
  std::uint64_t offset = 0;        // bytes from the start of the type
  std::uint64_t element_size = 0;  // bytes
  std::uint16_t key = 0;           // 0: not a key field; else the position in the key, from 1
};

struct DeclaredType {
  std::string name;  // UTF-8
  std::uint64_t size = 0;
  std::vector<DeclaredField> fields;
};

struct DeclaredSchema {
  std::string name;                       // printable
  std::string id = std::string(32, '0');  // hexadecimal digits
  std::string text;                       // JSON; empty without types
  std::vector<DeclaredType> types;
};

// Both throw RunError when the schema is broken. Sizes and offsets are not checked here.
DeclaredSchema declaredSchema(const tev_schema_t& schema);
// From the schema's JSON text (docs/formats.md). The id is the digest of this text.
DeclaredSchema declaredSchema(std::string_view json_text);

}  // namespace tev::host
