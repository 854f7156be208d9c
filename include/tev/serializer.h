/* Event blocks, as a provider appends them to the host's output buffer.
 *
 * Block, little-endian, unaligned: "TEV" and 'E' (4 bytes), time stamp in microseconds since the
 * Unix epoch (8), schema index (1), type index (2, the high byte 0), number of events (1), the
 * events.
 *
 * The host creates, drains and resets a serializer; these calls append. One thread at a time.
 */
#ifndef TEV_SERIALIZER_H
#define TEV_SERIALIZER_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "tev/export.h"
#include "tev/schema.h"

TEV_C_BEGIN

#define TEV_MAGIC_SIZE 4
#define TEV_EVENT_BLOCK_HEADER_SIZE 16
#define TEV_EVENT_BLOCK_KIND 'E'

/* The host's output buffer. */
typedef struct tev_data_serializer_t {
  tev_type_system_t* type_system; /* resolves schema and type indexes */
  uint8_t* buffer;
  uint64_t capacity; /* bytes */
  uint64_t used;     /* bytes; the next block starts here */
} tev_data_serializer_t;

/* Appends one block of up to `count` events of one type, as many as fit. Returns how many were
 * written; 0 when there is no room or the type has no size (logged, at most once in 10 s). */
TEV_API int tev_data_serializer_write_events_ts(tev_data_serializer_t* serializer,
                                                uint8_t schema_index, uint8_t type_index,
                                                const void* events, uint8_t count,
                                                uint64_t timestamp_usec);

/* The same with the current time. */
TEV_API int tev_data_serializer_write_events(tev_data_serializer_t* serializer,
                                             uint8_t schema_index, uint8_t type_index,
                                             const void* events, uint8_t count);

/* Appends the header of a block of exactly `count` events and returns where the caller writes them;
 * their size in bytes stands in `out_data_size`. Null, and nothing appended, when they do not fit.
 */
TEV_API void* tev_data_serializer_get_events_buffer(tev_data_serializer_t* serializer,
                                                    uint8_t schema_index, uint8_t type_index,
                                                    uint8_t count, size_t* out_data_size);

/* Takes `size` raw bytes of the buffer; null when they do not fit. */
TEV_API void* tev_data_serializer_reserve_buffer(tev_data_serializer_t* serializer, size_t size);

/* How many events of a type fit into one block now. */
TEV_API uint64_t tev_data_serializer_get_capacity(const tev_data_serializer_t* serializer,
                                                  uint8_t schema_index, uint8_t type_index);

/* The four bytes that start a block: "TEV" and the kind. `magic` holds TEV_MAGIC_SIZE bytes and no
 * terminator. */
TEV_API void tev_magic_value_fill(char* magic, char kind);
TEV_API void tev_magic_value_fill_lower(char* magic, char kind);
TEV_API void tev_magic_value_copy(char* destination, const char* source);
TEV_API bool tev_magic_value_match_type(const char* magic, char kind);
TEV_API bool tev_magic_value_match(const char* a, const char* b);

TEV_C_END

#endif
