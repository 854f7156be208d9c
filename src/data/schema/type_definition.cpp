#include "src/data/schema/type_definition.h"

#include <cstdlib>
#include <cstring>

#include "tev/logger.h"

namespace tev::schema {
namespace {

constexpr char kAddType[] = "tev_schema_add_type";

void destroyField(tev_type_field_definition_t* field) noexcept {
  if (!field) return;
  std::free(field->field_name);
  std::free(field->description);
  std::free(field->type_name);
  std::free(field);
}

struct DestroyField {
  void operator()(tev_type_field_definition_t* field) const noexcept { destroyField(field); }
};
using FieldPtr = std::unique_ptr<tev_type_field_definition_t, DestroyField>;

TypePtr createType(const char* name) {
  TypePtr type(static_cast<tev_type_definition_t*>(std::calloc(1, sizeof(tev_type_definition_t))));
  if (!type) return nullptr;
  type->name = strdup(name);
  if (!type->name) return nullptr;
  return type;
}

// A field with copies of the texts; null when memory is short.
FieldPtr copyField(const tev_type_field_info_t& info) {
  FieldPtr field(static_cast<tev_type_field_definition_t*>(
      std::calloc(1, sizeof(tev_type_field_definition_t))));
  if (!field) return nullptr;
  field->field_name = strdup(info.field_name);
  field->type_name = strdup(info.type_name);
  if (info.description) field->description = strdup(info.description);
  if (!field->field_name || !field->type_name || (info.description && !field->description))
    return nullptr;
  field->counting_mode = info.counting_mode;
  field->array_length = info.array_length;
  return field;
}

// Appends `field` to the type.
bool place(tev_type_field_definition_t& field, tev_type_definition_t& type,
           const tev_type_definition_t& element) {
  field.offset = type.size;
  field.type = &element;
  field.type_size = element.size;
  std::uint64_t size = 0;
  return !__builtin_mul_overflow(field.type_size, std::uint64_t{field.array_length}, &size) &&
         !__builtin_add_overflow(type.size, size, &type.size);
}

}  // namespace

void destroyType(tev_type_definition_t* type) noexcept {
  if (!type) return;
  for (std::uint32_t i = 0; type->fields && i < type->num_fields; ++i)
    destroyField(type->fields[i]);
  std::free(type->fields);
  std::free(type->name);
  std::free(type);
}

TypePtr createRecordType(const tev_schema_t& schema, const char* name,
                         std::span<const tev_type_field_info_t> fields) {
  TypePtr type = createType(name);
  if (!type) {
    TEV_LOG_ERROR("[%s] cannot allocate type definition", kAddType);
    return nullptr;
  }
  type->fields = static_cast<tev_type_field_definition_t**>(
      std::calloc(fields.size() + 1, sizeof(void*)));  // not of length 0, which may return null
  if (!type->fields) {
    TEV_LOG_ERROR("[%s] cannot allocate fields for type definition", kAddType);
    return nullptr;
  }
  for (const tev_type_field_info_t& info : fields) {
    const auto number = static_cast<int>(type->num_fields);
    FieldPtr field = copyField(info);
    if (!field) {
      TEV_LOG_ERROR("[%s] cannot get type definition from fields_info[%d]", kAddType, number);
      return nullptr;
    }
    const auto* const element = tev_schema_find_type_definition(&schema, info.type_name);
    if (!element) {
      TEV_LOG_ERROR("[%s] cannot find type_definition of type_field_definition '%s', number %d",
                    kAddType, info.field_name, number);
      return nullptr;
    }
    if (!place(*field, *type, *element)) {
      TEV_LOG_ERROR("[%s] the size of type '%s' exceeds 64 bits at field '%s'", kAddType, name,
                    info.field_name);
      return nullptr;
    }
    type->fields[type->num_fields++] = field.release();
  }
  return type;
}

TypePtr createBuiltinType(std::uint32_t id) {
  TypePtr type = createType(tev_builtin_type_name(id));
  if (!type) return nullptr;
  type->builtin_id = id;
  type->size = tev_builtin_type_size(id);
  return type;
}

}  // namespace tev::schema
