#include "host/events/declared_schema.h"

#include <fmt/format.h>

#include <algorithm>
#include <span>

#include "host/support/errors.h"
#include "host/support/text.h"
#include "src/support/malloc_ptr.h"

namespace tev::host {
namespace {

// A field refers to the type of its elements by address.
std::size_t indexOf(const tev_type_definition_t* wanted,
                    std::span<const tev_type_definition_t* const> earlier_types) {
  const auto found = std::ranges::find(earlier_types, wanted);
  if (found == earlier_types.end())
    throw RunError("the schema is broken: a field has the type of another schema");
  return static_cast<std::size_t>(found - earlier_types.begin());
}

DeclaredField declaredField(const tev_type_field_definition_t& field,
                            std::span<const tev_type_definition_t* const> earlier_types) {
  DeclaredField declared;
  declared.name = asUtf8(field.field_name);
  declared.description = field.description ? asPrintable(field.description) : "";
  declared.builtin_id = field.type->builtin_id;
  if (declared.builtin_id == TEV_TYPE_NONE) declared.composite = indexOf(field.type, earlier_types);
  declared.counting_mode = field.counting_mode;
  declared.count = field.array_length;
  declared.offset = field.offset;
  declared.element_size = field.type->size;
  declared.key = field.index;
  return declared;
}

}  // namespace

DeclaredSchema declaredSchema(const tev_schema_t& schema) {
  DeclaredSchema declared;
  declared.name = schema.name ? asPrintable(schema.name) : "";
  declared.id = schema.id_string;
  const std::span types(schema.types, std::min<std::size_t>(schema.num_types, TEV_MAX_TYPES));
  for (std::size_t i = 0; i < types.size(); ++i) {
    const tev_type_definition_t* const type = types[i];
    if (!type) throw RunError("the schema is broken: a type is missing");
    DeclaredType& added = declared.types.emplace_back();
    added.name = type->name ? asUtf8(type->name) : "";
    added.size = type->size;
    for (std::uint32_t f = 0; f < type->num_fields; ++f) {
      const tev_type_field_definition_t* const field = type->fields ? type->fields[f] : nullptr;
      if (!field || !field->field_name || !field->type)
        throw RunError(fmt::format("the schema is broken: field {} of type '{}' is incomplete", f,
                                   added.name));
      added.fields.push_back(declaredField(*field, types.first(i)));
    }
  }
  // Only a schema whose parts are all there has a text.
  const support::MallocPtr<char> text(tev_schema_json_string(&schema));
  if (text) declared.text = text.get();
  return declared;
}

}  // namespace tev::host
