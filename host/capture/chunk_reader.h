// Reads the chunks of a capture file, also of one that is damaged or cut off.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "host/capture/format.h"
#include "host/capture/head.h"
#include "host/support/errors.h"

struct ZSTD_DCtx_s;

namespace tev::host {

// A place of the file without a sound chunk.
struct Damage {
  std::uint64_t offset = 0;  // bytes from the start of the file
  std::uint64_t bytes = 0;
  bool is_cut_off = false;  // the file ends in a chunk, as after a power cut; otherwise it is wrong
  std::uint32_t chunks = 0;  // that are missing here, by their numbers
};

struct Chunk {
  ChunkHeader header;
  std::span<const std::uint8_t> body;  // unpacked; valid until the next call
};

// The file is there possibly, but the system does not open it.
class CannotOpen : public RunError {
 public:
  using RunError::RunError;
};

class ChunkReader {
 public:
  // Throws CannotOpen, and RunError when the file is not a regular file or does not begin with a
  // sound chunk.
  explicit ChunkReader(const std::string& path);
  ~ChunkReader();
  ChunkReader(const ChunkReader&) = delete;
  ChunkReader& operator=(const ChunkReader&) = delete;

  // The head, which is the first chunk. Nothing may be read before. Throws RunError, with file and
  // byte, when it is damaged.
  CaptureHead readHead();

  // The header of the next chunk; nothing at the end of the file. Its own hash is correct, its body
  // is not read yet. Wrong bytes before it are noted as damage. Throws RunError when the file
  // cannot be read.
  std::optional<ChunkHeader> peek();

  // The next chunk; nothing when it is damaged, which is noted. To be called after peek().
  std::optional<Chunk> take();

  // Goes to the beginning of a chunk, which must be inside the file.
  void seek(std::uint64_t offset);

  // Also reads what was appended to the file in the meantime.
  void refresh();

  // Skips the next chunk, whose body is not looked at. To be called after peek().
  void skip();

  // Frees what is needed only to read. Nothing can be read afterwards.
  void release();

  const std::string& path() const { return path_; }
  std::uint64_t fileId() const { return file_id_.value_or(0); }  // random
  std::uint64_t size() const { return size_; }                   // bytes of the file
  std::uint64_t position() const { return position_; }
  std::uint64_t lastChunk() const { return last_chunk_; }  // offset of the one taken last
  const std::vector<Damage>& damages() const { return damages_; }

  // The last time stamp of the chunks so far.
  std::uint64_t lastUsec() const { return last_usec_; }

  // Whether the last chunk so far is the one that a writer adds when it closes the file.
  bool isFinished() const { return last_kind_ == ChunkKind::index; }

 private:
  struct FreeDecompressor {
    void operator()(ZSTD_DCtx_s* decompressor) const;
  };

  void read(std::uint64_t offset, std::span<std::uint8_t> bytes) const;
  std::optional<ChunkHeader> headerAt(std::uint64_t offset) const;
  std::uint64_t nextHeader(std::uint64_t from) const;
  void note(std::uint64_t bytes, bool is_cut_off);
  bool follows(const ChunkHeader& header);
  bool unpack(const ChunkHeader& header);

  std::string path_;
  int descriptor_ = -1;
  std::uint64_t size_ = 0;
  std::uint64_t position_ = 0;
  std::uint64_t last_chunk_ = 0;
  std::optional<std::uint32_t> next_number_ = 0;  // of the chunk that is expected, if it is known
  ChunkKind last_kind_{};
  std::uint64_t last_usec_ = 0;
  std::optional<std::uint64_t> file_id_;
  std::optional<ChunkHeader> next_;
  std::unique_ptr<ZSTD_DCtx_s, FreeDecompressor> decompressor_;
  std::vector<std::uint8_t> stored_;
  std::vector<std::uint8_t> body_;
  std::vector<Damage> damages_;
};

}  // namespace tev::host
