// Capture files: event blocks are written in chunks, with hashes and compression, and read back to
// nothing. The baseline of writing is write() of the same blocks, that of reading a plain copy of
// them. The files are in the folder for temporary files.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/batch.h"
#include "bench/compare.h"
#include "host/capture/capture_file.h"
#include "host/capture/capture_source.h"

namespace tev::bench {
namespace {

constexpr std::uint32_t kDevices = 16;
constexpr int kPasses = 32;  // of a batch, which is then as large as a chunk of events
constexpr std::uint64_t kStepUsec = 1000;
constexpr std::uint64_t kMaxFile = std::uint64_t{32} << 20;  // bytes; then a new file is begun

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

host::CaptureHead head() {
  host::CaptureHead head;
  head.schemas = {makeSchema().schemas()[0].text};
  head.source = "bench";
  return head;
}

void writeBatch(host::CaptureFile& file, const Batch& batch) {
  file.writeEvents(batch.blocks(), batch.firstUsec(), batch.lastUsec());
}

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

void captureRead(benchmark::State& state) {
  constexpr int kUpdates = 64;  // each has a chunk of events
  const TemporaryFolder folder;
  const std::string path = folder.path("recorded.tevcap");
  std::vector<std::uint8_t> blocks;
  Batch batch(kDevices, kPasses, kStepUsec);
  double packed = 0;
  {
    host::CaptureFile file(path, head());
    for (int i = 0; i < kUpdates; ++i) {
      batch.advance();
      writeBatch(file, batch);
      file.writeClocks({.real = batch.lastUsec() * 1000, .monotonic = 0});
      blocks.insert(blocks.end(), batch.blocks().begin(), batch.blocks().end());
    }
    file.finish();
    packed = static_cast<double>(file.size());
  }
  std::uint64_t taken = 0;
  const auto read = [&] {
    host::CaptureSource source({path});
    taken = 0;
    const auto take = [&](host::Blocks some) { taken += some.size(); };
    while (source.fetch(take, [] { return false; })) {
    }
  };
  std::vector<std::uint8_t> copied(blocks.size());
  const auto copy = [&] {
    std::memcpy(copied.data(), blocks.data(), blocks.size());
    benchmark::DoNotOptimize(copied.data());
    benchmark::ClobberMemory();
  };
  const auto size = static_cast<double>(blocks.size());
  compare(
      state, size, read, copy, [] {}, [] {}, 1);
  if (taken != blocks.size()) state.SkipWithError("the blocks are not all read back");
  state.counters["packed_share"] = packed / size;
}
BENCHMARK(captureRead)->UseManualTime()->MinTime(0.3);

}  // namespace
}  // namespace tev::bench
