#include "tev/schema.h"

#include <cstdlib>
#include <cstring>
#include <span>

#include "src/data/schema/records.h"
#include "src/data/schema/type_definition.h"
#include "tev/logger.h"

namespace {

using FieldInfos = std::span<const tev_type_field_info_t>;

const char* orUndefined(const char* text) {
  return text ? text : "<undefined>";
}

bool areGiven(const char* type_name, const tev_type_field_info_t* fields, std::size_t count) {
  if (!type_name || (!fields && count != 0) || count > UINT32_MAX) return false;
  for (std::size_t i = 0; i < count; ++i)
    if (!fields[i].field_name || !fields[i].type_name) return false;
  return true;
}

bool areDefined(const tev_schema_t& schema, const char* type_name, FieldInfos fields) {
  for (const auto& field : fields) {
    if (tev_schema_find_type_definition(&schema, field.type_name)) continue;
    TEV_LOG_ERROR("Unable to register type '%s': type '%s' of the field '%s' is undefined",
                  type_name, field.type_name, field.field_name);
    return false;
  }
  return true;
}

// The last field's name is not compared with the others, because existing types rely on this.
const char* findDuplicateName(FieldInfos fields) {
  for (std::size_t i = 1; i + 1 < fields.size(); ++i)
    for (std::size_t earlier = 0; earlier < i; ++earlier)
      if (std::strcmp(fields[earlier].field_name, fields[i].field_name) == 0)
        return fields[i].field_name;
  return nullptr;
}

// The largest index, for messages that name a range of indexes.
unsigned lastTypeIndex(const tev_schema_t& schema) {
  return unsigned{schema.num_types} - 1U;
}

std::span<tev_type_field_definition_t*> fieldsOf(const tev_type_definition_t& type) {
  return {type.fields, type.num_fields};
}

tev_type_field_definition_t* findField(const tev_type_definition_t& type, const char* name) {
  for (auto* field : fieldsOf(type))
    if (name && std::strcmp(field->field_name, name) == 0) return field;
  return nullptr;
}

}  // namespace

tev_schema_t* tev_create_schema(const char* name, std::uint32_t version) {
  auto* schema = static_cast<tev_schema_t*>(std::calloc(1, sizeof(tev_schema_t)));
  if (!schema) return nullptr;
  schema->version = version;
  if (name) schema->name = strdup(name);
  if (name && !schema->name) {
    std::free(schema);
    return nullptr;
  }
  TEV_LOG_DEBUG("clearing md5_digest of schema: %p", static_cast<void*>(schema));
  tev_reset_schema_id(&schema->id);
  return schema;
}

void tev_destroy_schema(tev_schema_t* schema) {
  if (!schema) return;
  for (std::uint16_t i = 0; i < schema->num_types; ++i) tev::schema::destroyType(schema->types[i]);
  std::free(schema->name);
  std::free(schema);
}

const tev_type_definition_t* tev_schema_find_type_definition(const tev_schema_t* schema,
                                                             const char* name) {
  if (!name) return nullptr;
  for (; schema; schema = schema->fallback)
    for (std::uint16_t i = 0; i < schema->num_types; ++i)
      if (std::strcmp(schema->types[i]->name, name) == 0) return schema->types[i];
  return nullptr;
}

std::uint64_t tev_schema_sizeof_type(const tev_schema_t* schema, const char* name) {
  const tev_type_definition_t* const type = tev_schema_find_type_definition(schema, name);
  return type ? type->size : 0;
}

int tev_schema_add_type(tev_schema_t* schema, const char* type_name,
                        const tev_type_field_info_t* fields, std::size_t count,
                        std::uint8_t* out_index) {
  if (!schema) {
    TEV_LOG_ERROR("[%s] Schema pointer is NULL!", __func__);
    return TEV_SCHEMA_INVALID;
  }
  if (schema->num_types >= TEV_MAX_TYPES) {
    TEV_LOG_ERROR("[%s] Unable to add new type, reached TEV_MAX_TYPES. schema->num_types = %d",
                  __func__, schema->num_types);
    return TEV_SCHEMA_FULL;
  }
  if (!areGiven(type_name, fields, count)) {
    TEV_LOG_ERROR("[%s] Unable to add type '%s': a name or the list of fields is missing", __func__,
                  orUndefined(type_name));
    return TEV_SCHEMA_INVALID;
  }
  if (tev_schema_find_type_definition(schema, type_name)) {
    TEV_LOG_ERROR("Schema '%s' already contains type '%s'", orUndefined(schema->name), type_name);
    return TEV_SCHEMA_EXISTS;
  }
  const FieldInfos infos(fields, count);
  if (!areDefined(*schema, type_name, infos)) return TEV_SCHEMA_INVALID;
  if (const char* const duplicate = findDuplicateName(infos)) {
    TEV_LOG_ERROR("[%s] Failed to register new type '%s': field name '%s' occurs more than once.",
                  __func__, type_name, duplicate);
    return TEV_SCHEMA_EXISTS;
  }
  tev::schema::TypePtr type = tev::schema::createRecordType(*schema, type_name, infos);
  if (!type) return TEV_SCHEMA_FAILED;

  if (out_index) *out_index = static_cast<std::uint8_t>(schema->num_types);
  schema->types[schema->num_types++] = type.release();
  return TEV_SCHEMA_OK;
}

int tev_schema_set_field_indexes(tev_schema_t* schema, std::uint8_t type_index,
                                 const char* const* names, std::size_t count) {
  if (!schema) {
    TEV_LOG_ERROR("[%s] Schema pointer is NULL!", __func__);
    return TEV_SCHEMA_INVALID;
  }
  if (!names) {
    TEV_LOG_ERROR("[%s] Index names array is NULL!", __func__);
    return TEV_SCHEMA_INVALID;
  }
  if (type_index >= schema->num_types) {
    TEV_LOG_ERROR("[%s] Invalid type_index: %u (out of range, max: %u)", __func__, type_index,
                  lastTypeIndex(*schema));
    return TEV_SCHEMA_INVALID;
  }
  const tev_type_definition_t& type = *schema->types[type_index];
  for (auto* field : fieldsOf(type)) field->index = 0;

  std::uint16_t assigned = 0;
  for (const char* name : std::span(names, count))
    if (auto* field = findField(type, name)) field->index = ++assigned;
  if (assigned < count)
    TEV_LOG_DEBUG("Mismatch in assigned indices: expected %zu, but assigned %u (%s).", count,
                  assigned, type.name);
  return TEV_SCHEMA_OK;
}

const char** tev_schema_get_indexed_fields(const tev_schema_t* schema, std::uint8_t type_index,
                                           std::size_t* out_count) {
  if (!out_count) {
    TEV_LOG_ERROR("[%s %i] out_count is NULL", __func__, __LINE__);
    return nullptr;
  }
  *out_count = 0;
  if (!schema) {
    TEV_LOG_ERROR("[%s %i] schema is NULL", __func__, __LINE__);
    return nullptr;
  }
  if (type_index >= schema->num_types) {
    TEV_LOG_ERROR("[%s %i] type_index %u out of bounds (max: %u)", __func__, __LINE__, type_index,
                  lastTypeIndex(*schema));
    return nullptr;
  }
  const tev_type_definition_t* const type = schema->types[type_index];
  if (!type) {
    TEV_LOG_ERROR("[%s %i] schema->types[%u] is NULL", __func__, __LINE__, type_index);
    return nullptr;
  }
  const std::size_t room = type->num_fields;
  auto** names = static_cast<const char**>(std::malloc((room + 1) * sizeof(char*)));
  if (!names) {
    TEV_LOG_ERROR("[%s %i] malloc failed for %zu fields", __func__, __LINE__, room);
    return nullptr;
  }
  for (const auto* field : fieldsOf(*type))
    if (field->index != 0) names[(*out_count)++] = field->field_name;
  return names;
}
