#pragma once

#include <memory>
#include <span>

#include "tev/schema.h"

namespace tev::schema {

// Frees a complete or incomplete type definition with its fields. Null is ignored.
void destroyType(tev_type_definition_t* type) noexcept;

struct DestroyType {
  void operator()(tev_type_definition_t* type) const noexcept { destroyType(type); }
};
using TypePtr = std::unique_ptr<tev_type_definition_t, DestroyType>;

// A packed record type of these fields. Their type names are looked up in `schema`. Null, with the
// reason logged, when memory is short or the size exceeds 64 bits.
TypePtr createRecordType(const tev_schema_t& schema, const char* name,
                         std::span<const tev_type_field_info_t> fields);

// Null when memory is short.
TypePtr createBuiltinType(std::uint32_t id);

}  // namespace tev::schema
