/* Sources: the machine, or the unit of a machine, and the provider from which events come. */
#ifndef TEV_SOURCES_H
#define TEV_SOURCES_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "tev/export.h"

TEV_C_BEGIN

#define TEV_SOURCE_ID_SIZE 64
#define TEV_SOURCE_TAG_SIZE 16
#define TEV_MAX_SOURCES 65534
#define TEV_SOURCE_NOT_FOUND 65535

typedef struct tev_source_t {
  char id[TEV_SOURCE_ID_SIZE];   /* the unit, normally the host name */
  char tag[TEV_SOURCE_TAG_SIZE]; /* the provider; may be empty */
} tev_source_t;

/* Owns its sources. */
typedef struct tev_source_array_t {
  uint32_t count;
  tev_source_t** sources;
} tev_source_array_t;

/* A new source. Texts that do not fit are truncated. Null when memory is short. */
TEV_API tev_source_t* tev_create_source(const char* id, const char* tag);

/* The source of this machine. Its id is TEV_SOURCE_ID, or else TEV_HOST_NAME, or else the host name
 * up to its first dot. Null when the machine has no host name or memory is short. */
TEV_API tev_source_t* tev_create_default_source(const char* tag);
TEV_API void tev_destroy_source(tev_source_t* source);

/* An empty array; null when memory is short. */
TEV_API tev_source_array_t* tev_create_source_array(void);

/* An array that holds the default source. */
TEV_API tev_source_array_t* tev_create_default_source_array(const char* tag);
TEV_API void tev_destroy_source_array(tev_source_array_t* array);

/* Appends `source` to the array, which then owns it. Returns false, and the caller still owns the
 * source, when it is null, the array already has TEV_MAX_SOURCES sources, or memory is short. */
TEV_API bool tev_source_array_append(tev_source_array_t* array, tev_source_t* source);

/* The index of this object (compared by address), or TEV_SOURCE_NOT_FOUND. */
TEV_API uint16_t tev_source_array_find_source(const tev_source_array_t* array,
                                              const tev_source_t* source);

/* Copies id and tag; returns `destination`. */
TEV_API tev_source_t* tev_source_copy(tev_source_t* destination, const tev_source_t* source);

/* Orders by id, then by tag. */
TEV_API int tev_source_compare(const tev_source_t* a, const tev_source_t* b);

/* The id in a new buffer of TEV_SOURCE_ID_SIZE + 1 bytes that the caller frees; null when memory is
 * short. */
TEV_API char* tev_source_string(const tev_source_t* source);

/* "id:tag" into `buffer` of `size` bytes; false when it does not fit. */
TEV_API bool tev_source_full_string(const tev_source_t* source, char* buffer, size_t size);

/* Logs each source at debug level under `name`; returns the number of sources. */
TEV_API size_t tev_source_array_log(const tev_source_array_t* array, const char* name);

/* Sources with numbers from a range: "3" (1 to 3) or "2-4", with the default identity as prefix, or
 * "node[2-4]". Null for any other text, with an error logged. */
TEV_API tev_source_array_t* tev_create_source_array_from_string(const char* text);

/* The same, but if `text` is the name of a file (not a directory), one source per line of the file.
 * Null, with an error logged, when the file cannot be read completely: when it has more than 16
 * MiB, or when it is a pipe to which nothing is written during the first 10 seconds or for 2
 * seconds later on. */
TEV_API tev_source_array_t* tev_create_source_array_from_input(const char* text);

TEV_C_END

#endif
