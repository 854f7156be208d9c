// Writes one capture file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/capture/format.h"
#include "host/capture/head.h"
#include "host/events/event_source.h"

struct ZSTD_CCtx_s;

namespace tev::host {

class CaptureFile {
 public:
  // Creates the file, which must not exist, and writes the head. Throws RunError.
  CaptureFile(const std::string& path, const CaptureHead& head);
  ~CaptureFile();
  CaptureFile(const CaptureFile&) = delete;
  CaptureFile& operator=(const CaptureFile&) = delete;

  // Each of these writes a chunk. Throws RunError when the file cannot take it; the file then ends
  // with the chunk before.
  void writeEvents(Blocks blocks, std::uint64_t first_usec, std::uint64_t last_usec);
  void writeCounts(const std::vector<DeviceCounts>& counts, std::uint64_t now_usec);
  void writeClocks(const ClockPair& clocks);
  void writeNumbers(const EventNumbers& numbers);

  // Writes the index. Nothing may be written afterwards.
  void finish();

  const std::string& path() const { return path_; }
  int descriptor() const { return descriptor_; }
  std::uint64_t size() const { return size_; }            // bytes of the file
  std::uint64_t eventBytes() const { return unpacked_; }  // of the blocks, before they were packed

 private:
  void write(ChunkKind kind, std::span<const std::uint8_t> body, std::uint64_t first_usec,
             std::uint64_t last_usec);
  void note(const IndexEntry& entry);

  struct FreeCompressor {
    void operator()(ZSTD_CCtx_s* compressor) const;
  };

  std::string path_;
  int descriptor_ = -1;
  std::unique_ptr<ZSTD_CCtx_s, FreeCompressor> compressor_;
  std::uint64_t file_id_ = 0;
  std::uint32_t chunks_ = 0;
  std::uint64_t size_ = 0;
  std::uint64_t unpacked_ = 0;
  std::vector<std::uint8_t> out_;  // a header and a body
  std::vector<IndexEntry> index_;
  std::uint64_t index_step_ = 1;  // chunks of events per entry
  std::uint64_t event_chunks_ = 0;
};

}  // namespace tev::host
