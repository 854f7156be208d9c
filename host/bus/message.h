// Messages of a message bus: event blocks of one source, and what is needed to read them
// (docs/bus-format.md).
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/events/event_source.h"

struct ZSTD_CCtx_s;
struct ZSTD_DCtx_s;

namespace tev::host {

constexpr std::uint32_t kMessageVersion = 1;
constexpr std::size_t kLargestBatch = std::size_t{64} << 20;  // bytes of event blocks
constexpr std::size_t kLongestSource = 255;                   // bytes

// A run of a source: from its start to its end. Event numbers count from 0 in each run.
struct RunId {
  std::string source;       // not empty
  std::uint64_t start = 0;  // random

  auto operator<=>(const RunId&) const = default;
};

constexpr std::size_t kRunDigits = 16;

// Hexadecimal digits, and back. Throws RunError for another text.
std::string runText(std::uint64_t start);
std::uint64_t runFromText(std::string_view text);

// The schemas of a run, by their index in the blocks.
struct RunSchemas {
  std::vector<std::string> ids;
  std::vector<std::string> texts;  // JSON; empty without types
};

// Events that follow each other in a run.
struct Batch {
  RunId run;
  std::shared_ptr<const RunSchemas> schemas;
  std::uint64_t first = 0;       // number of its first event
  std::uint64_t events = 0;      // at least 1
  std::uint64_t first_usec = 0;  // smallest and largest time stamp
  std::uint64_t last_usec = 0;
  std::vector<std::uint8_t> blocks;
};

enum class BatchCodec : std::uint8_t { none, zstd };

// What a message says about its batch.
struct MessageHead {
  RunId run;
  std::vector<std::string> schema_ids;  // by the index in the blocks
  std::uint64_t first = 0;
  std::uint64_t events = 0;
  BatchCodec codec = BatchCodec::none;
  std::size_t size = 0;  // bytes of the blocks
};

// A message as the bus takes it. The key keeps the messages of a source in order.
struct OutgoingMessage {
  std::string key;
  std::vector<std::pair<std::string, std::string>> headers;
  std::vector<std::uint8_t> value;
};

// A message as the bus delivers it. Valid as long as the bus says.
struct IncomingMessage {
  std::string_view key;
  std::vector<std::pair<std::string_view, std::string_view>> headers;
  std::span<const std::uint8_t> value;
  std::uint64_t stored_usec = 0;  // when the bus took it, by the bus' clock; 0: not known
};

// Packs batches.
class MessageWriter {
 public:
  MessageWriter();
  ~MessageWriter();
  MessageWriter(const MessageWriter&) = delete;
  MessageWriter& operator=(const MessageWriter&) = delete;

  OutgoingMessage write(const Batch& batch);

 private:
  ZSTD_CCtx_s* compressor_;
};

// Unknown headers are ignored. Throws RunError, with the reason, when the message is not a batch.
MessageHead readHead(const IncomingMessage& message);

// Unpacks the blocks of messages.
class BlockReader {
 public:
  BlockReader();
  ~BlockReader();
  BlockReader(const BlockReader&) = delete;
  BlockReader& operator=(const BlockReader&) = delete;

  // The blocks in `value`, as the message's head describes them, in `blocks`, whose memory is
  // reused. Throws RunError when the value is broken. Whether the blocks are well-formed is not
  // checked.
  void read(std::span<const std::uint8_t> value, BatchCodec codec, std::size_t size,
            std::vector<std::uint8_t>& blocks);

 private:
  ZSTD_DCtx_s* decompressor_;
};

}  // namespace tev::host
