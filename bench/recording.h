// Capture files of batches, in the folder for temporary files.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "bench/batch.h"
#include "host/capture/capture_file.h"

namespace tev::bench {

inline constexpr std::uint32_t kDevices = 16;
inline constexpr int kPasses = 32;  // of a batch, which is then as large as a chunk of events
inline constexpr std::uint64_t kStepUsec = 1000;

class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "tev-bench-XXXXXX").string();
    if (!mkdtemp(name.data())) throw std::runtime_error("no temporary folder");
    root_ = name;
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  std::string path(const char* name) const { return root_ / name; }

 private:
  std::filesystem::path root_;
};

inline host::CaptureHead head() {
  host::CaptureHead head;
  head.schemas = {makeSchema().schemas()[0].text};
  head.source = "bench";
  return head;
}

inline void writeBatch(host::CaptureFile& file, const Batch& batch) {
  file.writeEvents(batch.blocks(), batch.firstUsec(), batch.lastUsec());
}

}  // namespace tev::bench
