/* Types of events, schemas of types, and the type system that holds a host's schemas.
 *
 * A type is a packed record: its fields in declaration order, without padding. Each field is an
 * element or an array of a built-in type or of a type defined earlier in the same schema. A schema
 * is identified by the MD5 digest of its canonical JSON text (docs/formats.md), which
 * tev_schema_json_string() returns.
 *
 * The records below are shared between modules that have their own copies of this library. Their
 * layout is therefore fixed, everything they own comes from malloc(), and users must not change
 * their fields. These functions do not lock.
 */
#ifndef TEV_SCHEMA_H
#define TEV_SCHEMA_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "tev/export.h"

TEV_C_BEGIN

enum {
  TEV_MAX_SCHEMAS = 255,
  TEV_MAX_TYPES = 254,
};

/* Results of the type and index operations. */
enum {
  TEV_SCHEMA_OK = 0,
  TEV_SCHEMA_FAILED = 1,  /* out of memory, or an internal failure */
  TEV_SCHEMA_EXISTS = 2,  /* a type or a field of this name already exists */
  TEV_SCHEMA_INVALID = 3, /* an invalid argument, or a reference to an undefined type */
  TEV_SCHEMA_FULL = 5,    /* the schema already holds TEV_MAX_TYPES types */
};

/* What the values of a field mean. */
enum {
  TEV_VALUE_ABSOLUTE = 0,
  TEV_VALUE_RUNNING_SUM = 1,
  TEV_VALUE_DELTA = 2,
};
#define TEV_VALUE_UNKNOWN UINT32_MAX

/* Built-in types, in the order in which every type system holds them. */
enum {
  TEV_TYPE_NONE = 0, /* a composite type */
  TEV_TYPE_BOOL = 1,
  TEV_TYPE_CHAR,
  TEV_TYPE_SHORT,
  TEV_TYPE_INT,
  TEV_TYPE_LONG,
  TEV_TYPE_LONG_LONG,
  TEV_TYPE_UCHAR,
  TEV_TYPE_USHORT,
  TEV_TYPE_UINT,
  TEV_TYPE_ULONG,
  TEV_TYPE_ULONG_LONG,
  TEV_TYPE_FLOAT,
  TEV_TYPE_DOUBLE,
  TEV_TYPE_INT8,
  TEV_TYPE_INT16,
  TEV_TYPE_INT32,
  TEV_TYPE_INT64,
  TEV_TYPE_UINT8,
  TEV_TYPE_UINT16,
  TEV_TYPE_UINT32,
  TEV_TYPE_UINT64,
  TEV_TYPE_TIMESTAMP = 22,
};

#define TEV_SCHEMA_ID_SIZE 16
#define TEV_SCHEMA_ID_STRING_SIZE 33 /* 32 hexadecimal digits and the terminator */

/* The identity of a schema: an MD5 digest. All zeros mean unset. */
typedef struct tev_schema_id_t {
  uint8_t bytes[TEV_SCHEMA_ID_SIZE];
} tev_schema_id_t;

/* One field as a caller describes it to tev_schema_add_type(); not retained. */
typedef struct tev_type_field_info_t {
  const char* field_name;
  const char* description; /* may be null */
  const char* type_name;   /* a built-in type, or a type defined earlier in the same schema */
  uint32_t counting_mode;  /* TEV_VALUE_... */
  uint16_t array_length;   /* elements; 1 for a scalar */
} tev_type_field_info_t;

typedef struct tev_type_definition_t tev_type_definition_t;
typedef struct tev_schema_t tev_schema_t;

typedef struct tev_type_field_definition_t {
  char* field_name;
  char* description; /* may be null */
  char* type_name;
  uint64_t type_size; /* bytes of one element */
  uint32_t counting_mode;
  uint16_t array_length;
  uint64_t offset;                   /* bytes from the start of the record */
  const tev_type_definition_t* type; /* of one element; not owned */
  uint16_t index; /* 0: not a key; otherwise the position among the key fields, from 1 */
} tev_type_field_definition_t;

struct tev_type_definition_t {
  char* name;
  uint32_t builtin_id; /* TEV_TYPE_... */
  uint32_t num_fields;
  tev_type_field_definition_t** fields;
  uint64_t size; /* bytes of one value */
};

struct tev_schema_t {
  uint32_t version; /* three numbers: bits 0-7, 8-15 and 16-31 */
  char* name;       /* may be null */
  tev_type_definition_t* types[TEV_MAX_TYPES];
  uint16_t num_types;
  tev_schema_t* fallback; /* searched for names that this schema does not have; not owned */
  tev_schema_id_t id;
  char id_string[TEV_SCHEMA_ID_STRING_SIZE];
};

/* The record layout of the host's counters. This library uses only its size. */
typedef struct tev_counters_schema_t {
  uint32_t record_size; /* bytes */
} tev_counters_schema_t;

typedef struct tev_type_system_t {
  tev_schema_t* builtin;
  tev_schema_t* schemas[TEV_MAX_SCHEMAS];
  uint8_t num_schemas;
  tev_counters_schema_t* counters;
} tev_type_system_t;

/* A type system with the built-in types; null when memory is short. */
TEV_API tev_type_system_t* tev_create_type_system(void);
TEV_API void tev_destroy_type_system(tev_type_system_t* type_system);

/* Adds an empty schema, which the type system owns. Null when it already has 255 schemas or memory
 * is short. `out_index` receives the schema's index and may be null. The id stays unset until
 * tev_type_system_update_md5_hashes() runs. */
TEV_API tev_schema_t* tev_type_system_add_schema(tev_type_system_t* type_system, const char* name,
                                                 uint32_t version, uint8_t* out_index);

/* Returns 1, with the schema's index in `out_index` (may be null), when a schema with that id
 * exists; otherwise 0. */
TEV_API int tev_type_system_find_schema(const tev_type_system_t* type_system, const char* id_string,
                                        uint8_t* out_index);

/* Destroys the newest schema; returns the number of schemas left. */
TEV_API uint8_t tev_type_system_remove_last_schema(tev_type_system_t* type_system);

/* Recomputes all ids. To be called after the types of a schema are complete. */
TEV_API void tev_type_system_update_md5_hashes(tev_type_system_t* type_system);

/* The largest size of any type, in bytes, at most 0xFFFFFFFF. The second function also includes the
 * counters record. */
TEV_API uint32_t tev_type_system_get_max_event_type_size(const tev_type_system_t* type_system);
TEV_API uint32_t tev_type_system_max_type_size(const tev_type_system_t* type_system);

/* A schema outside any type system; null when memory is short. */
TEV_API tev_schema_t* tev_create_schema(const char* name, uint32_t version);
TEV_API void tev_destroy_schema(tev_schema_t* schema);

/* Adds a packed record type of `count` fields. Returns TEV_SCHEMA_... On success `out_index` (may
 * be null) receives the type's index; otherwise the schema is unchanged. */
TEV_API int tev_schema_add_type(tev_schema_t* schema, const char* type_name,
                                const tev_type_field_info_t* fields, size_t count,
                                uint8_t* out_index);

/* The type of that name in the schema or in its fallback; null when neither has it. */
TEV_API const tev_type_definition_t* tev_schema_find_type_definition(const tev_schema_t* schema,
                                                                     const char* name);

/* The size in bytes of the type of that name, 0 when unknown. */
TEV_API uint64_t tev_schema_sizeof_type(const tev_schema_t* schema, const char* name);

/* Makes the named fields the key of a type, in the given order. Names that do not match a field are
 * skipped. Returns TEV_SCHEMA_OK or TEV_SCHEMA_INVALID. */
TEV_API int tev_schema_set_field_indexes(tev_schema_t* schema, uint8_t type_index,
                                         const char* const* names, size_t count);

/* The names of a type's key fields in field order. The caller frees the array, but not the names,
 * which the schema owns. Null on failure. */
TEV_API const char** tev_schema_get_indexed_fields(const tev_schema_t* schema, uint8_t type_index,
                                                   size_t* out_count);

/* Built-in types: null or 0 for unknown arguments. */
TEV_API const char* tev_builtin_type_name(uint32_t id);
TEV_API size_t tev_builtin_type_size(uint32_t id);
TEV_API uint32_t tev_builtin_type_from_name(const char* name);

/* The name of a counting mode, null when unknown; and the counting mode of a name,
 * TEV_VALUE_UNKNOWN when unknown. */
TEV_API const char* tev_value_type_string(uint32_t value_type);
TEV_API uint32_t tev_value_type_from_string(const char* name);

/* Schema ids. */
TEV_API bool tev_schema_id_is_unset(const tev_schema_id_t* id);
TEV_API void tev_copy_schema_id(tev_schema_id_t* destination, const tev_schema_id_t* source);
TEV_API void tev_reset_schema_id(tev_schema_id_t* id);
TEV_API int tev_compare_schema_id(const tev_schema_id_t* a, const tev_schema_id_t* b);

/* The id that marks blob data. */
TEV_API bool tev_schema_id_is_blob(const tev_schema_id_t* id);
TEV_API void tev_schema_id_set_blob(tev_schema_id_t* id);

/* 32 lower-case hexadecimal digits, written to a new buffer that the caller frees (null when memory
 * is short), or to the caller's buffer of at least TEV_SCHEMA_ID_STRING_SIZE characters. */
TEV_API char* tev_schema_id_string(const tev_schema_id_t* id);
TEV_API void tev_schema_id_to_schema_string(const tev_schema_id_t* id, char* buffer);

/* The canonical JSON text of a schema in its current state, in a new buffer that the caller frees.
 * The MD5 digest of the text without its terminator is the id that
 * tev_type_system_update_md5_hashes() computes. Null when `schema` is null or has no types, and
 * when memory is short, which is logged. */
TEV_API char* tev_schema_json_string(const tev_schema_t* schema);

/* Returns false and leaves `id` unchanged unless `text` is exactly 32 hexadecimal digits. */
TEV_API bool tev_schema_from_id_string(const char* text, tev_schema_id_t* id);

TEV_C_END

#endif
