// Reading capture files back: the events of a file are written in several formats, as tev-host
// decode does it. The baseline is a plain copy of the event blocks. The files are in the folder for
// temporary files.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "bench/batch.h"
#include "bench/compare.h"
#include "bench/recording.h"
#include "host/capture/capture_source.h"
#include "host/commands/decode.h"

namespace tev::bench {
namespace {

// A file with 16 MiB of event blocks.
class RecordedFile {
 public:
  RecordedFile() : path_(folder_.path("recorded.tevcap")) {
    constexpr int kUpdates = 64;  // each has a chunk of events
    Batch batch(kDevices, kPasses, kStepUsec);
    host::CaptureFile file(path_, head());
    for (int i = 0; i < kUpdates; ++i) {
      batch.advance();
      writeBatch(file, batch);
      file.writeClocks({.real = batch.lastUsec() * 1000, .monotonic = 0});
      blocks_.insert(blocks_.end(), batch.blocks().begin(), batch.blocks().end());
    }
    file.finish();
    size_ = file.size();
  }

  const std::string& path() const { return path_; }
  std::string beside(const char* name) const { return folder_.path(name); }
  const std::vector<std::uint8_t>& blocks() const { return blocks_; }
  std::uint64_t size() const { return size_; }  // bytes

 private:
  TemporaryFolder folder_;
  std::string path_;
  std::vector<std::uint8_t> blocks_;
  std::uint64_t size_ = 0;
};

template <class Read>
void compareWithCopy(benchmark::State& state, const RecordedFile& file, Read&& read) {
  std::vector<std::uint8_t> copied(file.blocks().size());
  const auto copy = [&] {
    std::memcpy(copied.data(), file.blocks().data(), copied.size());
    benchmark::DoNotOptimize(copied.data());
    benchmark::ClobberMemory();
  };
  compare(
      state, static_cast<double>(copied.size()), read, copy, [] {}, [] {}, 1);
}

void captureRead(benchmark::State& state) {
  const RecordedFile file;
  std::uint64_t taken = 0;
  compareWithCopy(state, file, [&] {
    host::CaptureSource source({file.path()});
    taken = 0;
    const auto take = [&](host::Blocks some) { taken += some.size(); };
    while (source.fetch(take, [] { return false; })) {
    }
  });
  if (taken != file.blocks().size()) state.SkipWithError("the blocks are not all read back");
  state.counters["packed_share"] =
      static_cast<double>(file.size()) / static_cast<double>(file.blocks().size());
}
BENCHMARK(captureRead)->UseManualTime()->MinTime(0.3);

void decodeCapture(benchmark::State& state, const char* format) {
  const RecordedFile file;
  host::RunOptions options;
  options.format = host::findOutputFormat(format);
  options.output = file.beside(format);
  const host::DecodeOptions decoded{.files = {file.path()}, .span = {}};
  int code = 0;
  compareWithCopy(state, file, [&] { code = host::decode(options, decoded); });
  if (code != 0) state.SkipWithError("the file is not decoded");
}
BENCHMARK_CAPTURE(decodeCapture, none, "none")->UseManualTime()->MinTime(0.3);
BENCHMARK_CAPTURE(decodeCapture, csv, "csv")->UseManualTime()->MinTime(0.5);
BENCHMARK_CAPTURE(decodeCapture, jsonl, "jsonl")->UseManualTime()->MinTime(0.5);
BENCHMARK_CAPTURE(decodeCapture, parquet, "parquet")->UseManualTime()->MinTime(0.5);

}  // namespace
}  // namespace tev::bench
