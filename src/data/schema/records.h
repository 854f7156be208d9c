// The layout of the schema records. Modules with other copies of this library read and write them.
#pragma once

#include "tev/schema.h"

namespace tev::schema {

static_assert(sizeof(tev_schema_id_t) == 16 && alignof(tev_schema_id_t) == 1);

static_assert(offsetof(tev_type_field_info_t, field_name) == 0 &&
              offsetof(tev_type_field_info_t, description) == 8 &&
              offsetof(tev_type_field_info_t, type_name) == 16 &&
              offsetof(tev_type_field_info_t, counting_mode) == 24 &&
              offsetof(tev_type_field_info_t, array_length) == 28 &&
              sizeof(tev_type_field_info_t) == 32);

static_assert(offsetof(tev_type_field_definition_t, field_name) == 0 &&
              offsetof(tev_type_field_definition_t, description) == 8 &&
              offsetof(tev_type_field_definition_t, type_name) == 16 &&
              offsetof(tev_type_field_definition_t, type_size) == 24 &&
              offsetof(tev_type_field_definition_t, counting_mode) == 32 &&
              offsetof(tev_type_field_definition_t, array_length) == 36 &&
              offsetof(tev_type_field_definition_t, offset) == 40 &&
              offsetof(tev_type_field_definition_t, type) == 48 &&
              offsetof(tev_type_field_definition_t, index) == 56 &&
              sizeof(tev_type_field_definition_t) == 64);

static_assert(offsetof(tev_type_definition_t, name) == 0 &&
              offsetof(tev_type_definition_t, builtin_id) == 8 &&
              offsetof(tev_type_definition_t, num_fields) == 12 &&
              offsetof(tev_type_definition_t, fields) == 16 &&
              offsetof(tev_type_definition_t, size) == 24 && sizeof(tev_type_definition_t) == 32);

static_assert(offsetof(tev_schema_t, version) == 0 && offsetof(tev_schema_t, name) == 8 &&
              offsetof(tev_schema_t, types) == 16 && offsetof(tev_schema_t, num_types) == 2048 &&
              offsetof(tev_schema_t, fallback) == 2056 && offsetof(tev_schema_t, id) == 2064 &&
              offsetof(tev_schema_t, id_string) == 2080 && sizeof(tev_schema_t) == 2120);

static_assert(offsetof(tev_type_system_t, builtin) == 0 &&
              offsetof(tev_type_system_t, schemas) == 8 &&
              offsetof(tev_type_system_t, num_schemas) == 2048 &&
              offsetof(tev_type_system_t, counters) == 2056 && sizeof(tev_type_system_t) == 2064);

}  // namespace tev::schema
