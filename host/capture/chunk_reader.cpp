#include "host/capture/chunk_reader.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zstd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <new>
#include <system_error>
#include <utility>

#include "host/support/errors.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

constexpr std::size_t kWindow = std::size_t{1} << 20;  // bytes that are searched at once

template <class... Arguments>
[[noreturn]] void refuse(const std::string& path, fmt::format_string<Arguments...> problem,
                         Arguments&&... arguments) {
  throw RunError(fmt::format("{}: {}", asPrintable(path),
                             fmt::format(problem, std::forward<Arguments>(arguments)...)));
}

std::string messageOf(int error) {
  return std::generic_category().message(error);
}

}  // namespace

void ChunkReader::FreeDecompressor::operator()(ZSTD_DCtx_s* decompressor) const {
  ZSTD_freeDCtx(decompressor);
}

ChunkReader::ChunkReader(const std::string& path) : path_(path) {
  // Without O_NONBLOCK, a named pipe without a writer would block.
  descriptor_ = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor_ < 0) throw CannotOpen(fmt::format("{}: {}", asPrintable(path), messageOf(errno)));
  struct stat status {};
  const bool is_known = fstat(descriptor_, &status) == 0;
  try {
    if (!is_known || !S_ISREG(status.st_mode)) refuse(path, "it is not a regular file");
    size_ = static_cast<std::uint64_t>(status.st_size);
    if (size_ == 0) refuse(path, "it is empty");
    const auto first = headerAt(0);
    if (!first) refuse(path, "it is not a capture, or it is cut off in its first bytes");
    file_id_ = first->file_id;
  } catch (...) {
    close(descriptor_);
    throw;
  }
}

ChunkReader::~ChunkReader() {
  release();
}

void ChunkReader::release() {
  if (descriptor_ >= 0) close(std::exchange(descriptor_, -1));
  decompressor_.reset();
  stored_ = {};
  body_ = {};
}

// The bytes must be inside the file.
void ChunkReader::read(std::uint64_t offset, std::span<std::uint8_t> bytes) const {
  for (std::size_t done = 0; done < bytes.size();) {
    const ssize_t count = pread(descriptor_, bytes.data() + done, bytes.size() - done,
                                static_cast<off_t>(offset + done));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) refuse(path_, "byte {}: {}", offset + done, messageOf(errno));
    if (count == 0) refuse(path_, "byte {}: the file became shorter", offset + done);
    done += static_cast<std::size_t>(count);
  }
}

std::optional<ChunkHeader> ChunkReader::headerAt(std::uint64_t offset) const {
  if (size_ - offset < kChunkHeaderSize) return std::nullopt;
  std::array<std::uint8_t, kChunkHeaderSize> bytes{};
  read(offset, bytes);
  const auto header = readHeader(bytes);
  if (!header || (file_id_ && header->file_id != *file_id_)) return std::nullopt;
  return header;
}

// The offset of the first header at or behind `from`; the size of the file when there is none.
std::uint64_t ChunkReader::nextHeader(std::uint64_t from) const {
  std::vector<std::uint8_t> window;
  while (size_ - from >= kChunkHeaderSize) {
    window.resize(std::min<std::uint64_t>(kWindow, size_ - from));
    read(from, window);
    const std::uint8_t* const end = window.data() + window.size();
    for (const std::uint8_t* at = window.data();; ++at) {
      at = static_cast<const std::uint8_t*>(
          memmem(at, static_cast<std::size_t>(end - at), kCaptureMagic, sizeof kCaptureMagic));
      if (!at) break;
      const std::uint64_t offset = from + static_cast<std::uint64_t>(at - window.data());
      if (size_ - offset >= kChunkHeaderSize && headerAt(offset)) return offset;
    }
    if (window.size() < kWindow) break;
    from += window.size() - sizeof kCaptureMagic + 1;  // a magic may lie across the end
  }
  return size_;
}

CaptureHead ChunkReader::readHead() {
  const auto header = peek();
  const auto chunk = header && header->kind == ChunkKind::head ? take() : std::nullopt;
  if (!chunk)
    refuse(path_, "byte 0: its head is damaged, and without it the events cannot be read");
  try {
    return headFromJson({reinterpret_cast<const char*>(chunk->body.data()), chunk->body.size()});
  } catch (const RunError& error) {
    refuse(path_, "byte {}: {}", last_chunk_, error.what());
  }
}

void ChunkReader::note(std::uint64_t bytes, bool is_cut_off) {
  if (!damages_.empty() && damages_.back().offset + damages_.back().bytes == position_) {
    damages_.back().bytes += bytes;
    damages_.back().is_cut_off &= is_cut_off;
  } else {
    damages_.push_back({position_, bytes, is_cut_off, 0});
  }
  position_ += bytes;
}

// Whether the next chunk comes after those so far. Missing ones before it are noted.
bool ChunkReader::follows(const ChunkHeader& header) {
  const std::uint32_t expected = next_number_.value_or(header.number);
  if (header.number < expected) return false;
  if (header.number > expected) {
    note(0, false);
    damages_.back().chunks += header.number - expected;
  }
  next_number_ = header.number + 1;
  last_kind_ = header.kind;
  last_usec_ = std::max(last_usec_, header.last_usec);
  return true;
}

std::optional<ChunkHeader> ChunkReader::peek() {
  while (!next_ && position_ < size_) {
    const auto header = headerAt(position_);
    if (!header) {
      const std::uint64_t next = nextHeader(position_ + 1);
      note(next - position_, next == size_);
    } else if (header->stored > size_ - position_ - kChunkHeaderSize) {
      // The header's hash is correct, so the end of the chunk is missing.
      const std::uint64_t next = nextHeader(position_ + 1);
      note(next - position_, next == size_);
    } else {
      next_ = header;
    }
  }
  return next_;
}

void ChunkReader::refresh() {
  struct stat status {};
  if (fstat(descriptor_, &status) == 0)
    size_ = std::max(size_, static_cast<std::uint64_t>(status.st_size));
}

void ChunkReader::seek(std::uint64_t offset) {
  position_ = offset;
  next_.reset();
  next_number_.reset();
}

void ChunkReader::skip() {
  const ChunkHeader header = *std::exchange(next_, std::nullopt);
  if (follows(header))
    position_ += kChunkHeaderSize + header.stored;
  else
    note(kChunkHeaderSize + header.stored, false);
}

std::optional<Chunk> ChunkReader::take() {
  const ChunkHeader header = *std::exchange(next_, std::nullopt);
  stored_.resize(header.stored);
  read(position_ + kChunkHeaderSize, stored_);
  if (hashOf(stored_) != header.body_hash || !unpack(header)) {
    // The length may be that of a chunk whose rest is missing.
    note(nextHeader(position_ + kChunkHeaderSize) - position_, false);
    return std::nullopt;
  }
  if (!follows(header)) {
    note(kChunkHeaderSize + header.stored, false);
    return std::nullopt;
  }
  last_chunk_ = position_;
  position_ += kChunkHeaderSize + header.stored;
  return Chunk{header, body_};
}

bool ChunkReader::unpack(const ChunkHeader& header) {
  if (header.codec == ChunkCodec::none) {
    body_.swap(stored_);
    return body_.size() == header.unpacked;
  }
  if (header.codec != ChunkCodec::zstd) return false;
  if (!decompressor_) decompressor_.reset(ZSTD_createDCtx());
  if (!decompressor_) throw std::bad_alloc();
  body_.resize(header.unpacked);
  const std::size_t size = ZSTD_decompressDCtx(decompressor_.get(), body_.data(), body_.size(),
                                               stored_.data(), stored_.size());
  return ZSTD_isError(size) == 0 && size == body_.size();
}

}  // namespace tev::host
