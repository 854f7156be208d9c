#include "tev/serializer.h"

#include <cstddef>

#include "src/serializer/block_writer.h"
#include "src/support/clock.h"
#include "src/support/log_throttle.h"
#include "tev/logger.h"

static_assert(offsetof(tev_data_serializer_t, type_system) == 0 &&
              offsetof(tev_data_serializer_t, buffer) == 8 &&
              offsetof(tev_data_serializer_t, capacity) == 16 &&
              offsetof(tev_data_serializer_t, used) == 24 && sizeof(tev_data_serializer_t) == 32);

namespace tev::common {
namespace {

using support::LogThrottle;

[[gnu::cold, gnu::noinline]] void logNoSize(LogThrottle& throttle,
                                            const tev_data_serializer_t& serializer,
                                            std::uint8_t schema_index, std::uint8_t type_index) {
  if (!tev_log_enabled(TEV_LEVEL_ERROR) || !throttle.admit(support::realtimeUsec())) return;
  const tev_schema_t* const schema = findSchema(serializer, schema_index);
  TEV_LOG_ERROR("schema %s type index %u size is zero",
                schema && schema->name ? schema->name : "<undefined>", type_index);
}

bool hasType(const tev_data_serializer_t& serializer, std::uint8_t schema_index,
             std::uint8_t type_index) {
  const tev_schema_t* const schema = findSchema(serializer, schema_index);
  return schema && type_index < schema->num_types;
}

// Reserves `size` bytes, which must be available.
std::uint8_t* take(tev_data_serializer_t& serializer, std::uint64_t size) {
  std::uint8_t* const start = serializer.buffer + serializer.used;
  serializer.used += size;
  return start;
}

}  // namespace

const tev_schema_t* findSchema(const tev_data_serializer_t& serializer, std::uint8_t schema_index) {
  const tev_type_system_t* const types = serializer.type_system;
  return types && schema_index < types->num_schemas ? types->schemas[schema_index] : nullptr;
}

std::uint64_t eventSize(const tev_data_serializer_t& serializer, std::uint8_t schema_index,
                        std::uint8_t type_index) {
  const tev_schema_t* const schema = findSchema(serializer, schema_index);
  return schema && type_index < schema->num_types ? schema->types[type_index]->size : 0;
}

void BlockWriter::reportNoSize(const tev_data_serializer_t& serializer, std::uint8_t schema_index,
                               std::uint8_t type_index) {
  static constinit LogThrottle throttle;
  logNoSize(throttle, serializer, schema_index, type_index);
}

}  // namespace tev::common

using namespace tev::common;

int tev_data_serializer_write_events_ts(tev_data_serializer_t* serializer,
                                        std::uint8_t schema_index, std::uint8_t type_index,
                                        const void* events, std::uint8_t count,
                                        std::uint64_t timestamp_usec) {
  return BlockWriter(serializer, schema_index, type_index).write(events, count, timestamp_usec);
}

int tev_data_serializer_write_events(tev_data_serializer_t* serializer, std::uint8_t schema_index,
                                     std::uint8_t type_index, const void* events,
                                     std::uint8_t count) {
  return tev_data_serializer_write_events_ts(serializer, schema_index, type_index, events, count,
                                             tev::support::realtimeUsec());
}

void* tev_data_serializer_get_events_buffer(tev_data_serializer_t* serializer,
                                            std::uint8_t schema_index, std::uint8_t type_index,
                                            std::uint8_t count, std::size_t* out_data_size) {
  if (!serializer || !hasType(*serializer, schema_index, type_index)) return nullptr;
  std::uint64_t data_size = 0;
  if (__builtin_mul_overflow(eventSize(*serializer, schema_index, type_index), std::uint64_t{count},
                             &data_size))
    data_size = UINT64_MAX;  // never fits

  const std::uint64_t left = bytesLeft(*serializer);
  const std::uint64_t room = roomForEvents(left);
  // The header needs space even without events.
  if (left < kBlockHeaderSize || data_size > room) {
    TEV_LOG_DEBUG(
        "[Data Serializer][%s] Cannot get data buffer. free_space = %zu < data_size = %zu",
        __func__, room, data_size);
    return nullptr;
  }
  std::uint8_t* const block = take(*serializer, kBlockHeaderSize + data_size);
  writeBlockHeader(block, tev::support::realtimeUsec(), blockHeaderTail(schema_index, type_index),
                   count);
  if (out_data_size) *out_data_size = data_size;
  return block + kBlockHeaderSize;
}

void* tev_data_serializer_reserve_buffer(tev_data_serializer_t* serializer, std::size_t size) {
  if (!serializer || !serializer->buffer || bytesLeft(*serializer) < size) return nullptr;
  return take(*serializer, size);
}

std::uint64_t tev_data_serializer_get_capacity(const tev_data_serializer_t* serializer,
                                               std::uint8_t schema_index, std::uint8_t type_index) {
  if (!serializer) return 0;
  const std::uint64_t size = eventSize(*serializer, schema_index, type_index);
  if (size == 0) {
    static constinit tev::support::LogThrottle throttle;
    logNoSize(throttle, *serializer, schema_index, type_index);
    return 0;
  }
  return roomForEvents(bytesLeft(*serializer)) / size;
}
