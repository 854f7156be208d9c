// Blocks in a serializer's buffer: a header, followed by events of one type.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "tev/serializer.h"

namespace tev::common {

// Blocks are little-endian, and numbers are copied without conversion.
static_assert(std::endian::native == std::endian::little);

inline constexpr std::uint64_t kBlockHeaderSize = TEV_EVENT_BLOCK_HEADER_SIZE;

// The second of the header's two 64-bit words, without the time stamp and the count. It identifies
// the type of the events.
inline constexpr std::size_t bitInSecondWord(std::size_t offset) {
  return 8 * (offset - sizeof(std::uint64_t));
}
inline std::uint64_t blockHeaderTail(std::uint8_t schema_index, std::uint8_t type_index) {
  return std::uint64_t{schema_index} << bitInSecondWord(TEV_EVENT_BLOCK_SCHEMA_INDEX_OFFSET) |
         std::uint64_t{type_index} << bitInSecondWord(TEV_EVENT_BLOCK_TYPE_INDEX_OFFSET);
}

// Builds the header in two registers and then stores it.
inline void writeBlockHeader(std::uint8_t* block, std::uint64_t timestamp_usec, std::uint64_t tail,
                             std::uint8_t count) {
  constexpr char kPrefix[] = TEV_MAGIC_PREFIX;
  constexpr char kMagicText[] = {kPrefix[0], kPrefix[1], kPrefix[2], TEV_EVENT_BLOCK_KIND};
  constexpr auto kMagic = std::bit_cast<std::uint32_t>(kMagicText);
  constexpr std::size_t kTimestampBit = 8 * TEV_EVENT_BLOCK_TIMESTAMP_OFFSET;  // of the first word
  const std::uint64_t words[] = {
      kMagic | timestamp_usec << kTimestampBit,
      timestamp_usec >> (64 - kTimestampBit) | tail |
          std::uint64_t{count} << bitInSecondWord(TEV_EVENT_BLOCK_COUNT_OFFSET)};
  static_assert(sizeof words == kBlockHeaderSize);
  std::memcpy(block, words, sizeof words);
}

// The bytes left in the serializer's buffer, and the part of them that remains for events after a
// header.
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

// Writes blocks of one type, like tev_data_serializer_write_events_ts(), but looks up the type only
// once for many events. No other code may write to the serializer at the same time. The
// serializer's record is up to date after every block.
class BlockWriter {
 public:
  // With a null serializer, nothing is written.
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

  // Returns the number of events written: as many as fit. When it is 0, no block is written.
  int write(const void* events, std::uint8_t count, std::uint64_t timestamp_usec) {
    if (size_ == 0) {
      if (serializer_) reportNoSize(*serializer_, schema_index_, type_index_);
      return 0;
    }
    if (!events && count != 0) return 0;
    if (roomForEvents(left_) < size_) return 0;

    // The division is avoided for a single event, which is the usual case and is known to fit.
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
  // Logs, at most once in ten seconds, that the type has no size. It does not receive a pointer to
  // the writer, so that the writer's members can be kept in registers.
  static void reportNoSize(const tev_data_serializer_t& serializer, std::uint8_t schema_index,
                           std::uint8_t type_index);

  tev_data_serializer_t* serializer_;
  std::uint64_t tail_;
  std::uint64_t size_ = 0;  // bytes of one event; 0: cannot be written
  std::uint8_t* buffer_ = nullptr;
  std::uint64_t used_ = 0;  // bytes
  std::uint64_t left_ = 0;  // bytes
  std::uint8_t schema_index_;
  std::uint8_t type_index_;
};

}  // namespace tev::common
