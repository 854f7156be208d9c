#include "host/capture/capture_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <unistd.h>
#include <zstd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <system_error>

#include "host/support/errors.h"
#include "host/support/random.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

constexpr int kLevel = 1;
constexpr std::size_t kMaxIndex = 65'536;  // entries; then every second one is dropped

[[noreturn]] void fail(const char* what, const std::string& path, int error) {
  throw RunError(fmt::format("cannot {} {}: {}", what, asPrintable(path),
                             std::generic_category().message(error)));
}

std::span<const std::uint8_t> bytesOf(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

}  // namespace

void CaptureFile::FreeCompressor::operator()(ZSTD_CCtx_s* compressor) const {
  ZSTD_freeCCtx(compressor);
}

CaptureFile::CaptureFile(const std::string& path, const CaptureHead& head)
    : path_(path), compressor_(ZSTD_createCCtx()), file_id_(randomNumber()) {
  if (!compressor_) throw std::bad_alloc();
  // An existing file is never changed, so two writers cannot share one.
  descriptor_ = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
  if (descriptor_ < 0) fail("create", path, errno);
  flock(descriptor_, LOCK_EX | LOCK_NB);
  try {
    const std::uint64_t start = head.start.real / 1000;
    write(ChunkKind::head, bytesOf(toJson(head)), start, start);
  } catch (...) {
    close(descriptor_);
    unlink(path.c_str());
    throw;
  }
}

CaptureFile::~CaptureFile() {
  close(descriptor_);
}

void CaptureFile::writeEvents(Blocks blocks, std::uint64_t first_usec, std::uint64_t last_usec) {
  const IndexEntry entry{size_, first_usec, last_usec};
  write(ChunkKind::events, blocks, first_usec, last_usec);
  unpacked_ += blocks.size();
  note(entry);
}

void CaptureFile::writeCounts(const std::vector<DeviceCounts>& counts, std::uint64_t now_usec) {
  write(ChunkKind::ledger, bytesOf(toJson(counts)), now_usec, now_usec);
}

void CaptureFile::writeClocks(const ClockPair& clocks) {
  std::uint8_t body[sizeof clocks];
  std::memcpy(body, &clocks, sizeof clocks);
  write(ChunkKind::clocks, body, clocks.real / 1000, clocks.real / 1000);
}

void CaptureFile::writeNumbers(const EventNumbers& numbers) {
  std::uint8_t body[sizeof numbers];
  std::memcpy(body, &numbers, sizeof numbers);
  write(ChunkKind::numbers, body, 0, 0);
}

void CaptureFile::finish() {
  std::vector<std::uint8_t> body(index_.size() * sizeof(IndexEntry));
  if (!index_.empty()) std::memcpy(body.data(), index_.data(), body.size());
  write(ChunkKind::index, body, 0, 0);
}

// The index has a bounded size.
void CaptureFile::note(const IndexEntry& entry) {
  if (event_chunks_++ % index_step_ != 0) return;
  if (index_.size() == kMaxIndex) {
    for (std::size_t i = 0; i < kMaxIndex / 2; ++i) index_[i] = index_[2 * i];
    index_.resize(kMaxIndex / 2);
    index_step_ *= 2;
  }
  index_.push_back(entry);
}

void CaptureFile::write(ChunkKind kind, std::span<const std::uint8_t> body,
                        std::uint64_t first_usec, std::uint64_t last_usec) {
  out_.resize(kChunkHeaderSize + ZSTD_compressBound(body.size()));
  const std::span<std::uint8_t> room = std::span(out_).subspan(kChunkHeaderSize);
  ChunkHeader header;
  header.codec = ChunkCodec::zstd;
  std::size_t stored = ZSTD_compressCCtx(compressor_.get(), room.data(), room.size(), body.data(),
                                         body.size(), kLevel);
  if (ZSTD_isError(stored) != 0 || stored >= body.size()) {
    header.codec = ChunkCodec::none;
    stored = body.size();
    std::ranges::copy(body, room.begin());
  }
  header.file_id = file_id_;
  header.kind = kind;
  header.number = chunks_;
  header.stored = static_cast<std::uint32_t>(stored);
  header.unpacked = static_cast<std::uint32_t>(body.size());
  header.first_usec = first_usec;
  header.last_usec = last_usec;
  header.body_hash = hashOf(room.first(stored));
  writeHeader(header, ChunkHeaderBytes(out_.data(), kChunkHeaderSize));

  const std::size_t size = kChunkHeaderSize + stored;
  for (std::size_t done = 0; done < size;) {
    const ssize_t count =
        pwrite(descriptor_, out_.data() + done, size - done, static_cast<off_t>(size_ + done));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) {
      const int error = count < 0 ? errno : EIO;
      // If this fails, readers find a chunk that is cut off.
      [[maybe_unused]] const int cut = ftruncate(descriptor_, static_cast<off_t>(size_));
      fail("write", path_, error);
    }
    done += static_cast<std::size_t>(count);
  }
  size_ += size;
  ++chunks_;
}

}  // namespace tev::host
