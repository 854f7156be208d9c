#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <span>

#include "src/data/schema/records.h"
#include "src/data/schema/schema_id.h"
#include "src/data/schema/schema_json.h"
#include "src/data/schema/type_definition.h"
#include "tev/logger.h"
#include "tev/schema.h"

namespace {

constexpr char kBuiltinName[] = "<built-in>";

tev_schema_t* createBuiltinSchema() {
  tev_schema_t* const schema = tev_create_schema(kBuiltinName, tev::schema::kTevVersion);
  if (!schema) return nullptr;
  for (std::uint32_t id = TEV_TYPE_BOOL; id <= TEV_TYPE_TIMESTAMP; ++id) {
    tev::schema::TypePtr type = tev::schema::createBuiltinType(id);
    if (!type) {
      tev_destroy_schema(schema);
      return nullptr;
    }
    schema->types[schema->num_types++] = type.release();
  }
  return schema;
}

std::span<tev_schema_t* const> schemasOf(const tev_type_system_t& type_system) {
  return {type_system.schemas, type_system.num_schemas};
}

}  // namespace

tev_type_system_t* tev_create_type_system(void) {
  auto* type_system = static_cast<tev_type_system_t*>(std::calloc(1, sizeof(tev_type_system_t)));
  if (!type_system) return nullptr;
  type_system->builtin = createBuiltinSchema();
  if (!type_system->builtin) {
    TEV_LOG_ERROR("Failed to register built-in types");
    tev_destroy_type_system(type_system);
    return nullptr;
  }
  type_system->counters =
      static_cast<tev_counters_schema_t*>(std::calloc(1, sizeof(tev_counters_schema_t)));
  if (!type_system->counters) {
    TEV_LOG_ERROR("Failed to create counters schema object");
    tev_destroy_type_system(type_system);
    return nullptr;
  }
  return type_system;
}

void tev_destroy_type_system(tev_type_system_t* type_system) {
  if (!type_system) return;
  for (tev_schema_t* schema : schemasOf(*type_system)) tev_destroy_schema(schema);
  tev_destroy_schema(type_system->builtin);
  std::free(type_system->counters);
  std::free(type_system);
}

tev_schema_t* tev_type_system_add_schema(tev_type_system_t* type_system, const char* name,
                                         std::uint32_t version, std::uint8_t* out_index) {
  if (!type_system || type_system->num_schemas >= TEV_MAX_SCHEMAS) return nullptr;
  tev_schema_t* const schema = tev_create_schema(name, version);
  if (!schema) return nullptr;
  schema->fallback = type_system->builtin;
  tev::schema::updateId(*schema);  // without types: only the string, all zeros

  if (out_index) *out_index = type_system->num_schemas;
  type_system->schemas[type_system->num_schemas++] = schema;
  return schema;
}

int tev_type_system_find_schema(const tev_type_system_t* type_system, const char* id_string,
                                std::uint8_t* out_index) {
  if (!type_system || !id_string) return 0;
  for (std::uint8_t i = 0; i < type_system->num_schemas; ++i) {
    if (std::strcmp(type_system->schemas[i]->id_string, id_string) != 0) continue;
    TEV_LOG_DEBUG("Schema already exists %s", id_string);
    if (out_index) *out_index = i;
    return 1;
  }
  return 0;
}

std::uint8_t tev_type_system_remove_last_schema(tev_type_system_t* type_system) {
  if (!type_system || type_system->num_schemas == 0) return 0;
  tev_schema_t*& last = type_system->schemas[--type_system->num_schemas];
  tev_destroy_schema(last);
  last = nullptr;
  return type_system->num_schemas;
}

void tev_type_system_update_md5_hashes(tev_type_system_t* type_system) {
  if (!type_system) return;
  for (tev_schema_t* schema : schemasOf(*type_system)) tev::schema::updateId(*schema);
}

std::uint32_t tev_type_system_get_max_event_type_size(const tev_type_system_t* type_system) {
  if (!type_system) return 0;
  std::uint64_t largest = 0;
  for (const tev_schema_t* schema : schemasOf(*type_system))
    for (std::uint16_t i = 0; i < schema->num_types; ++i)
      largest = std::max(largest, schema->types[i]->size);
  return static_cast<std::uint32_t>(std::min<std::uint64_t>(largest, UINT32_MAX));
}

std::uint32_t tev_type_system_max_type_size(const tev_type_system_t* type_system) {
  const std::uint32_t largest = tev_type_system_get_max_event_type_size(type_system);
  if (!type_system || !type_system->counters) return largest;
  return std::max(largest, type_system->counters->record_size);
}
