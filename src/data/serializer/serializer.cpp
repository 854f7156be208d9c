#include "tev/serializer.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>

#include "src/support/clock.h"
#include "src/support/log_throttle.h"
#include "tev/logger.h"

// Blocks are little-endian and numbers are copied as they lie in memory.
static_assert(std::endian::native == std::endian::little);

static_assert(offsetof(tev_data_serializer_t, type_system) == 0 &&
              offsetof(tev_data_serializer_t, buffer) == 8 &&
              offsetof(tev_data_serializer_t, capacity) == 16 &&
              offsetof(tev_data_serializer_t, used) == 24 && sizeof(tev_data_serializer_t) == 32);

namespace {

using tev::support::LogThrottle;

constexpr std::size_t kHeaderSize = TEV_EVENT_BLOCK_HEADER_SIZE;
constexpr char kEventMagic[] = {'T', 'E', 'V', TEV_EVENT_BLOCK_KIND};

enum HeaderOffset : std::size_t {
  kTimestampAt = 4,  // behind the magic
  kSchemaIndexAt = 12,
  kTypeIndexAt = 13,
  kCountAt = 15,
};
static_assert(sizeof kEventMagic == TEV_MAGIC_SIZE && kCountAt + 1 == kHeaderSize);

// Null for an index out of range.
const tev_schema_t* findSchema(const tev_data_serializer_t& serializer, std::uint8_t schema_index) {
  const tev_type_system_t* const types = serializer.type_system;
  return types && schema_index < types->num_schemas ? types->schemas[schema_index] : nullptr;
}

bool hasType(const tev_data_serializer_t& serializer, std::uint8_t schema_index,
             std::uint8_t type_index) {
  const tev_schema_t* const schema = findSchema(serializer, schema_index);
  return schema && type_index < schema->num_types;
}

// Bytes of one event; 0 for an index out of range.
std::uint64_t eventSize(const tev_data_serializer_t& serializer, std::uint8_t schema_index,
                        std::uint8_t type_index) {
  const tev_schema_t* const schema = findSchema(serializer, schema_index);
  return schema && type_index < schema->num_types ? schema->types[type_index]->size : 0;
}

// Bytes left in the buffer.
constexpr std::uint64_t leftOf(std::uint64_t capacity, std::uint64_t used) {
  return used < capacity ? capacity - used : 0;
}

// Bytes of events that fit behind a block's header.
constexpr std::uint64_t roomForEvents(std::uint64_t left) {
  return left > kHeaderSize ? left - kHeaderSize : 0;
}

std::uint64_t leftOf(const tev_data_serializer_t& serializer) {
  return serializer.buffer ? leftOf(serializer.capacity, serializer.used) : 0;
}

// Takes `size` bytes, which must be left.
std::uint8_t* take(tev_data_serializer_t& serializer, std::uint64_t size) {
  std::uint8_t* const start = serializer.buffer + serializer.used;
  serializer.used += size;
  return start;
}

// Put together in two registers, and stored at once.
void writeHeader(std::uint8_t* block, std::uint64_t timestamp_usec, std::uint8_t schema_index,
                 std::uint8_t type_index, std::uint8_t count) {
  constexpr auto kMagic = std::bit_cast<std::uint32_t>(kEventMagic);
  constexpr auto shiftTo = [](std::size_t at) { return 8 * (at % sizeof(std::uint64_t)); };
  const std::uint64_t words[] = {kMagic | timestamp_usec << shiftTo(kTimestampAt),
                                 timestamp_usec >> shiftTo(kTimestampAt) |
                                     std::uint64_t{schema_index} << shiftTo(kSchemaIndexAt) |
                                     std::uint64_t{type_index} << shiftTo(kTypeIndexAt) |
                                     std::uint64_t{count} << shiftTo(kCountAt)};
  static_assert(sizeof words == kHeaderSize);
  std::memcpy(block, words, sizeof words);
}

[[gnu::cold, gnu::noinline]] void logNoSize(LogThrottle& throttle,
                                            const tev_data_serializer_t& serializer,
                                            std::uint8_t schema_index, std::uint8_t type_index) {
  if (!tev_log_enabled(TEV_LEVEL_ERROR) || !throttle.admit(tev::support::realtimeUsec())) return;
  const tev_schema_t* const schema = findSchema(serializer, schema_index);
  TEV_LOG_ERROR("schema %s type index %u size is zero",
                schema && schema->name ? schema->name : "<undefined>", type_index);
}

}  // namespace

int tev_data_serializer_write_events_ts(tev_data_serializer_t* serializer,
                                        std::uint8_t schema_index, std::uint8_t type_index,
                                        const void* events, std::uint8_t count,
                                        std::uint64_t timestamp_usec) {
  if (!serializer) return 0;
  const std::uint64_t size = eventSize(*serializer, schema_index, type_index);
  if (size == 0) {
    static constinit LogThrottle throttle;
    logNoSize(throttle, *serializer, schema_index, type_index);
    return 0;
  }
  if (!events && count != 0) return 0;
  const std::uint64_t room = roomForEvents(leftOf(*serializer));
  if (size > room) return 0;

  // One event at a time is the rule, and known to fit: it is spared the division.
  const auto fitting =
      count <= 1 ? count : static_cast<std::uint8_t>(std::min<std::uint64_t>(count, room / size));
  std::uint8_t* const block = take(*serializer, kHeaderSize + fitting * size);
  writeHeader(block, timestamp_usec, schema_index, type_index, fitting);
  if (fitting != 0) std::memcpy(block + kHeaderSize, events, fitting * size);
  return fitting;
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
    data_size = UINT64_MAX;  // fits nowhere

  const std::uint64_t left = leftOf(*serializer);
  const std::uint64_t room = roomForEvents(left);
  if (left < kHeaderSize || data_size > room) {  // the header needs its bytes even without events
    TEV_LOG_DEBUG(
        "[Data Serializer][%s] Cannot get data buffer. free_space = %zu < data_size = %zu",
        __func__, room, data_size);
    return nullptr;
  }
  std::uint8_t* const block = take(*serializer, kHeaderSize + data_size);
  writeHeader(block, tev::support::realtimeUsec(), schema_index, type_index, count);
  if (out_data_size) *out_data_size = data_size;
  return block + kHeaderSize;
}

void* tev_data_serializer_reserve_buffer(tev_data_serializer_t* serializer, std::size_t size) {
  if (!serializer || !serializer->buffer || leftOf(*serializer) < size) return nullptr;
  return take(*serializer, size);
}

std::uint64_t tev_data_serializer_get_capacity(const tev_data_serializer_t* serializer,
                                               std::uint8_t schema_index, std::uint8_t type_index) {
  if (!serializer) return 0;
  const std::uint64_t size = eventSize(*serializer, schema_index, type_index);
  if (size == 0) {
    static constinit LogThrottle throttle;
    logNoSize(throttle, *serializer, schema_index, type_index);
    return 0;
  }
  return roomForEvents(leftOf(*serializer)) / size;
}
