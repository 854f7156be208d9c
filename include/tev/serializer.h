/* Event blocks, as a provider appends them to the host's output buffer.
 *
 * Block, little-endian, unaligned: the magic "TEV" and 'E' (4 bytes), time stamp in microseconds
 * since the Unix epoch (8), schema index (1), type index (2, the high byte 0), number of events
 * (1), the events.
 *
 * The host creates, drains and resets a serializer. These functions append to it. Only one thread
 * may use it at a time.
 */
#ifndef TEV_SERIALIZER_H
#define TEV_SERIALIZER_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "tev/export.h"
#include "tev/schema.h"

TEV_C_BEGIN

#define TEV_MAGIC_PREFIX "TEV"
#define TEV_MAGIC_SIZE 4 /* the prefix and a kind */
#define TEV_EVENT_BLOCK_KIND 'E'

/* Offsets of the parts of a block's header, in bytes from its start. The magic is at offset 0. */
#define TEV_EVENT_BLOCK_TIMESTAMP_OFFSET 4
#define TEV_EVENT_BLOCK_SCHEMA_INDEX_OFFSET 12
#define TEV_EVENT_BLOCK_TYPE_INDEX_OFFSET 13
#define TEV_EVENT_BLOCK_COUNT_OFFSET 15
#define TEV_EVENT_BLOCK_HEADER_SIZE 16

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

/* The same, with the current time as time stamp. */
TEV_API int tev_data_serializer_write_events(tev_data_serializer_t* serializer,
                                             uint8_t schema_index, uint8_t type_index,
                                             const void* events, uint8_t count);

/* Appends the header of a block of exactly `count` events. Returns the address to which the caller
 * writes the events; `out_data_size` receives their size in bytes. When the events do not fit,
 * returns null and does not append anything. */
TEV_API void* tev_data_serializer_get_events_buffer(tev_data_serializer_t* serializer,
                                                    uint8_t schema_index, uint8_t type_index,
                                                    uint8_t count, size_t* out_data_size);

/* Reserves `size` raw bytes of the buffer; null when they do not fit. */
TEV_API void* tev_data_serializer_reserve_buffer(tev_data_serializer_t* serializer, size_t size);

/* The number of events of a type that currently fit into one block. */
TEV_API uint64_t tev_data_serializer_get_capacity(const tev_data_serializer_t* serializer,
                                                  uint8_t schema_index, uint8_t type_index);

/* The four bytes that start a block: "TEV" and the kind. `magic` has TEV_MAGIC_SIZE bytes and no
 * terminator. */
TEV_API void tev_magic_value_fill(char* magic, char kind);
TEV_API void tev_magic_value_fill_lower(char* magic, char kind);
TEV_API void tev_magic_value_copy(char* destination, const char* source);
TEV_API bool tev_magic_value_match_type(const char* magic, char kind);
TEV_API bool tev_magic_value_match(const char* a, const char* b);

TEV_C_END

#endif
