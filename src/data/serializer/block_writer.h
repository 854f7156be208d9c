// Blocks in a serializer's buffer: a header, and events of one type behind it.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "tev/serializer.h"

namespace tev::common {

// Blocks are little-endian and numbers are copied as they lie in memory.
static_assert(std::endian::native == std::endian::little);

inline constexpr std::uint64_t kBlockHeaderSize = TEV_EVENT_BLOCK_HEADER_SIZE;

// The part of a header that tells whose events follow: its last eight bytes, less the time stamp's.
inline std::uint64_t blockHeaderTail(std::uint8_t schema_index, std::uint8_t type_index) {
  enum : std::size_t { kTail = 8, kSchemaIndexAt = 12, kTypeIndexAt = 13 };
  return std::uint64_t{schema_index} << 8 * (kSchemaIndexAt - kTail) |
         std::uint64_t{type_index} << 8 * (kTypeIndexAt - kTail);
}

// Put together in two registers, and stored at once.
inline void writeBlockHeader(std::uint8_t* block, std::uint64_t timestamp_usec, std::uint64_t tail,
                             std::uint8_t count) {
  constexpr char kMagicText[] = {'T', 'E', 'V', TEV_EVENT_BLOCK_KIND};
  constexpr auto kMagic = std::bit_cast<std::uint32_t>(kMagicText);
  constexpr std::size_t kBits = 32;  // of the time stamp in either half
  constexpr std::size_t kCountAt = 56;
  const std::uint64_t words[] = {kMagic | timestamp_usec << kBits,
                                 timestamp_usec >> kBits | tail | std::uint64_t{count} << kCountAt};
  static_assert(sizeof words == kBlockHeaderSize);
  std::memcpy(block, words, sizeof words);
}

// Bytes left in the serializer's buffer, and those of them that events fit into behind a header.
inline std::uint64_t bytesLeft(const tev_data_serializer_t& serializer) {
  return serializer.buffer && serializer.used < serializer.capacity
             ? serializer.capacity - serializer.used
             : 0;
}
inline std::uint64_t roomForEvents(std::uint64_t left) {
  return left > kBlockHeaderSize ? left - kBlockHeaderSize : 0;
}

// Null for an index out of range.
const tev_schema_t* findSchema(const tev_data_serializer_t& serializer, std::uint8_t schema_index);

// Bytes of one event; 0 for an index out of range.
std::uint64_t eventSize(const tev_data_serializer_t& serializer, std::uint8_t schema_index,
                        std::uint8_t type_index);

// Writes blocks of one type, which it looks up once: what tev_data_serializer_write_events_ts does,
// for many events in a row. The serializer is not to be written to by others meanwhile; what it
// says of itself is right after every block.
class BlockWriter {
 public:
  // A null serializer takes nothing.
  BlockWriter(tev_data_serializer_t* serializer, std::uint8_t schema_index, std::uint8_t type_index)
      : serializer_(serializer),
        tail_(blockHeaderTail(schema_index, type_index)),
        schema_index_(schema_index),
        type_index_(type_index) {
    if (!serializer) return;
    size_ = eventSize(*serializer, schema_index, type_index);
    buffer_ = serializer->buffer;
    used_ = serializer->used;
    left_ = bytesLeft(*serializer);
  }

  // The number of events written: as many as fit, 0 (and no block) when none does.
  int write(const void* events, std::uint8_t count, std::uint64_t timestamp_usec) {
    if (size_ == 0) {
      if (serializer_) reportNoSize(*serializer_, schema_index_, type_index_);
      return 0;
    }
    if (!events && count != 0) return 0;
    if (roomForEvents(left_) < size_) return 0;

    // One event at a time is the rule, and known to fit: it is spared the division.
    const auto fitting = count <= 1 ? count
                                    : static_cast<std::uint8_t>(std::min<std::uint64_t>(
                                          count, (left_ - kBlockHeaderSize) / size_));
    std::uint8_t* const block = buffer_ + used_;
    writeBlockHeader(block, timestamp_usec, tail_, fitting);
    if (fitting != 0) std::memcpy(block + kBlockHeaderSize, events, fitting * size_);
    const std::uint64_t written = kBlockHeaderSize + fitting * size_;
    left_ -= written;
    used_ += written;
    serializer_->used = used_;
    return fitting;
  }

 private:
  // Logs, once in ten seconds, that the type has no size. It is handed nothing of the writer's own,
  // which can so live in registers.
  static void reportNoSize(const tev_data_serializer_t& serializer, std::uint8_t schema_index,
                           std::uint8_t type_index);

  tev_data_serializer_t* serializer_;
  std::uint64_t tail_;
  std::uint64_t size_ = 0;  // bytes of one event; 0: not to be written
  std::uint8_t* buffer_ = nullptr;
  std::uint64_t used_ = 0;  // bytes
  std::uint64_t left_ = 0;  // bytes
  std::uint8_t schema_index_;
  std::uint8_t type_index_;
};

}  // namespace tev::common
