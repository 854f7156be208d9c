// Capture files: event blocks are written in chunks, with hashes and compression. The baseline is
// write() of the same blocks. The files are in the folder for temporary files.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

#include "bench/compare.h"
#include "bench/recording.h"

namespace tev::bench {
namespace {

constexpr std::uint64_t kMaxFile = std::uint64_t{32} << 20;  // bytes; then a new file is begun

// A capture file that is begun again when it is long.
class Recording {
 public:
  explicit Recording(std::string path) : path_(std::move(path)) { beginIfLong(); }

  void beginIfLong() {
    if (file_ && file_->size() < kMaxFile) return;
    file_.reset();
    unlink(path_.c_str());
    file_.emplace(path_, head());
  }

  void write(const Batch& batch) { writeBatch(*file_, batch); }

 private:
  std::string path_;
  std::optional<host::CaptureFile> file_;
};

// A file of bare blocks, in the same way.
class BareFile {
 public:
  explicit BareFile(const std::string& path)
      : descriptor_(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644)) {
    if (descriptor_ < 0) throw std::runtime_error("cannot create " + path);
  }
  ~BareFile() { close(descriptor_); }
  BareFile(const BareFile&) = delete;
  BareFile& operator=(const BareFile&) = delete;

  void beginIfLong() {
    if (size_ < kMaxFile) return;
    if (ftruncate(descriptor_, 0) != 0 || lseek(descriptor_, 0, SEEK_SET) != 0)
      throw std::runtime_error("cannot begin the file again");
    size_ = 0;
  }

  void write(host::Blocks blocks) {
    if (::write(descriptor_, blocks.data(), blocks.size()) != static_cast<ssize_t>(blocks.size()))
      throw std::runtime_error("cannot write");
    size_ += blocks.size();
  }

 private:
  int descriptor_;
  std::uint64_t size_ = 0;
};

void captureWrite(benchmark::State& state) {
  const TemporaryFolder folder;
  Recording recording(folder.path("recorded.tevcap"));
  BareFile bare(folder.path("bare"));
  Batch batch(kDevices, kPasses, kStepUsec);
  compare(
      state, static_cast<double>(batch.blocks().size()), [&] { recording.write(batch); },
      [&] { bare.write(batch.blocks()); },
      [&] {
        batch.advance();
        recording.beginIfLong();
      },
      [&] { bare.beginIfLong(); }, 1);
}
BENCHMARK(captureWrite)->UseManualTime()->MinTime(0.3);

}  // namespace
}  // namespace tev::bench
