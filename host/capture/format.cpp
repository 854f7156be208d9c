#include "host/capture/format.h"

#include <xxhash.h>

#include <bit>
#include <cstring>

namespace tev::host {
namespace {

static_assert(std::endian::native == std::endian::little);

// Offsets in the header. Two bytes after the codec are zero.
constexpr std::size_t kFileId = 8;
constexpr std::size_t kKind = 16;
constexpr std::size_t kCodec = 17;
constexpr std::size_t kNumber = 20;
constexpr std::size_t kStored = 24;
constexpr std::size_t kUnpacked = 28;
constexpr std::size_t kFirst = 32;
constexpr std::size_t kLast = 40;
constexpr std::size_t kBodyHash = 48;
constexpr std::size_t kHeaderHash = 56;  // of all bytes before it

template <class Number>
void put(ChunkHeaderBytes bytes, std::size_t offset, Number number) {
  std::memcpy(&bytes[offset], &number, sizeof number);
}

template <class Number>
Number get(std::span<const std::uint8_t> bytes, std::size_t offset) {
  Number number{};
  std::memcpy(&number, &bytes[offset], sizeof number);
  return number;
}

}  // namespace

std::uint64_t hashOf(std::span<const std::uint8_t> bytes) {
  return XXH3_64bits(bytes.data(), bytes.size());
}

void writeHeader(const ChunkHeader& header, ChunkHeaderBytes bytes) {
  std::memset(bytes.data(), 0, bytes.size());
  std::memcpy(bytes.data(), kCaptureMagic, sizeof kCaptureMagic);
  put(bytes, kFileId, header.file_id);
  put(bytes, kKind, header.kind);
  put(bytes, kCodec, header.codec);
  put(bytes, kNumber, header.number);
  put(bytes, kStored, header.stored);
  put(bytes, kUnpacked, header.unpacked);
  put(bytes, kFirst, header.first_usec);
  put(bytes, kLast, header.last_usec);
  put(bytes, kBodyHash, header.body_hash);
  put(bytes, kHeaderHash, hashOf(bytes.first<kHeaderHash>()));
}

std::optional<ChunkHeader> readHeader(std::span<const std::uint8_t> bytes) {
  if (bytes.size() < kChunkHeaderSize) return std::nullopt;
  if (std::memcmp(bytes.data(), kCaptureMagic, sizeof kCaptureMagic) != 0) return std::nullopt;
  if (get<std::uint64_t>(bytes, kHeaderHash) != hashOf(bytes.first(kHeaderHash)))
    return std::nullopt;
  ChunkHeader header;
  header.file_id = get<std::uint64_t>(bytes, kFileId);
  header.kind = get<ChunkKind>(bytes, kKind);
  header.codec = get<ChunkCodec>(bytes, kCodec);
  header.number = get<std::uint32_t>(bytes, kNumber);
  header.stored = get<std::uint32_t>(bytes, kStored);
  header.unpacked = get<std::uint32_t>(bytes, kUnpacked);
  header.first_usec = get<std::uint64_t>(bytes, kFirst);
  header.last_usec = get<std::uint64_t>(bytes, kLast);
  header.body_hash = get<std::uint64_t>(bytes, kBodyHash);
  if (header.stored > kMaxChunkBody || header.unpacked > kMaxChunkBody) return std::nullopt;
  return header;
}

}  // namespace tev::host
