// The chunks of a capture file (docs/capture-format.md). The writer and the reader use this
// description.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace tev::host {

inline constexpr std::uint8_t kCaptureMagic[8] = {0x89, 'T', 'E', 'V', 'C', 'A', 'P', '\n'};
inline constexpr std::uint32_t kCaptureVersion = 1;  // in the head

inline constexpr std::size_t kChunkHeaderSize = 64;  // bytes

// A reader refuses longer bodies, before and after unpacking.
inline constexpr std::size_t kMaxChunkBody = std::size_t{64} << 20;  // bytes

// A writer closes a chunk of events when it has reached this size.
inline constexpr std::size_t kChunkOfEvents = std::size_t{256} << 10;  // bytes

// Readers skip other kinds.
enum class ChunkKind : std::uint8_t {
  head = 'H',     // JSON: CaptureHead
  events = 'E',   // event blocks
  ledger = 'L',   // JSON: the counts of the devices at last_usec
  clocks = 'C',   // one ClockPair
  numbers = 'N',  // one EventNumbers: of the next chunk of events, in a spool
  index = 'I',    // IndexEntry, one after the other
};

enum class ChunkCodec : std::uint8_t { none = 0, zstd = 1 };

// In front of each body. Numbers are little-endian.
struct ChunkHeader {
  std::uint64_t file_id = 0;     // random; the same in all chunks of a file
  ChunkKind kind{};              // may have a value that is not listed
  ChunkCodec codec{};            // may have a value that is not listed
  std::uint32_t number = 0;      // of the chunk in its file, from 0
  std::uint32_t stored = 0;      // bytes of the body in the file
  std::uint32_t unpacked = 0;    // bytes of the body
  std::uint64_t first_usec = 0;  // time stamps of the body, since the Unix epoch
  std::uint64_t last_usec = 0;
  std::uint64_t body_hash = 0;  // XXH3-64 of the stored bytes
};

using ChunkHeaderBytes = std::span<std::uint8_t, kChunkHeaderSize>;

// Adds the magic and the header's own hash.
void writeHeader(const ChunkHeader& header, ChunkHeaderBytes bytes);

// Nothing when the bytes are not a sound header, or when a size is above kMaxChunkBody.
std::optional<ChunkHeader> readHeader(std::span<const std::uint8_t> bytes);

// XXH3-64.
std::uint64_t hashOf(std::span<const std::uint8_t> bytes);

// Both clocks at one moment, in nanoseconds.
struct ClockPair {
  std::uint64_t real;       // since the Unix epoch
  std::uint64_t monotonic;  // since an arbitrary moment, which is the same for a whole file
};

// The place of events in their run on a message bus.
struct EventNumbers {
  std::uint64_t first;  // number of the first event
  std::uint64_t events;
};

struct IndexEntry {
  std::uint64_t offset;  // of the chunk's header in the file
  std::uint64_t first_usec;
  std::uint64_t last_usec;
};

}  // namespace tev::host
