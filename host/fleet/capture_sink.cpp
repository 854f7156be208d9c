// Capture files of each run of a source.
#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <list>
#include <optional>
#include <utility>
#include <vector>

#include "host/capture/capture_file.h"
#include "host/fleet/sink.h"
#include "host/support/text.h"
#include "tev/serializer.h"

namespace tev::host {
namespace {

constexpr std::size_t kOpenFiles = 64;
constexpr std::uint64_t kLargeFile = std::uint64_t{64} << 20;  // bytes; then the next one is begun

// A name of a file from a name of a source: other bytes become %hh.
std::string fileName(const std::string& source) {
  constexpr std::size_t kLongest = 160;  // bytes; the run tells long names apart
  return percentEncoded(source, isPlainInFileName).substr(0, kLongest);
}

// The blocks behind the first `skipped` events. Of a block with both, the rest becomes a block.
std::vector<std::uint8_t> blocksBehind(const Contents& contents, std::uint64_t skipped) {
  std::vector<std::uint8_t> rest;
  forEachBlock(contents.schema->view, contents.blocks, [&](const Block& block) {
    const auto dropped = static_cast<std::size_t>(std::min<std::uint64_t>(skipped, block.events));
    skipped -= dropped;
    if (dropped == block.events) return;
    const auto header = block.bytes.first(TEV_EVENT_BLOCK_HEADER_SIZE);
    rest.insert(rest.end(), header.begin(), header.end());
    rest[rest.size() - header.size() + TEV_EVENT_BLOCK_COUNT_OFFSET] =
        static_cast<std::uint8_t>(block.events - dropped);
    const auto events = block.bytes.subspan(header.size() + dropped * block.type->size);
    rest.insert(rest.end(), events.begin(), events.end());
  });
  return rest;
}

class CaptureSink final : public Sink {
 public:
  explicit CaptureSink(std::string folder) : folder_(std::move(folder)) { makeSinkFolder(folder_); }

  ~CaptureSink() override {
    try {
      closeAll();
    } catch (const RunError&) {  // the files are readable without their last chunk
    }
  }

  void take(const MessageHead& head, const Contents& contents, std::uint64_t skipped) override {
    std::uint64_t first_usec = contents.first_usec;
    std::uint64_t last_usec = contents.first_usec;
    forEachBlock(contents.schema->view, contents.blocks, [&](const Block& block) {
      first_usec = std::min(first_usec, block.timestamp_usec);
      last_usec = std::max(last_usec, block.timestamp_usec);
    });
    CaptureFile& file = fileOf(head, contents, skipped, first_usec);
    if (skipped == 0)
      file.writeEvents(contents.blocks, first_usec, last_usec);
    else
      file.writeEvents(blocksBehind(contents, skipped), first_usec, last_usec);
  }

  void flush() override {}

 private:
  struct Open {
    RunId run;
    std::shared_ptr<const FleetSchema> schema;
    std::unique_ptr<CaptureFile> file;
  };

  CaptureFile& fileOf(const MessageHead& head, const Contents& contents, std::uint64_t skipped,
                      std::uint64_t first_usec) {
    const auto known = std::ranges::find(open_, head.run, &Open::run);
    if (known != open_.end()) {
      open_.splice(open_.begin(), open_, known);
      if (known->schema == contents.schema && known->file->size() < kLargeFile) return *known->file;
      close(known);
    }
    if (open_.size() >= kOpenFiles) close(std::prev(open_.end()));
    CaptureHead described;
    for (const SchemaView::Schema& one : contents.schema->view.schemas()) {
      described.schemas.push_back(one.text);
      described.schema_ids.push_back(one.id);
    }
    described.source = head.run.source;
    described.writer = "tev-host " TEV_VERSION;
    described.start = {first_usec * 1000, 0};
    open_.push_front({head.run, contents.schema,
                      std::make_unique<CaptureFile>(
                          freePath(fmt::format("{}+{}+{:020}", fileName(head.run.source),
                                               runText(head.run.start), head.first + skipped)),
                          described)});
    return *open_.front().file;
  }

  // What was written before an interruption stays.
  std::string freePath(const std::string& name) const {
    std::string path = fmt::format("{}/{}.tevcap", folder_, name);
    for (int i = 2; std::filesystem::exists(path); ++i)
      path = fmt::format("{}/{}.{}.tevcap", folder_, name, i);
    return path;
  }

  void close(std::list<Open>::iterator one) {
    const Open closing = std::move(*one);
    open_.erase(one);
    closing.file->finish();
  }

  void closeAll() {
    while (!open_.empty()) close(open_.begin());
  }

  std::string folder_;
  std::list<Open> open_;  // the one that was used last first
};

}  // namespace

std::unique_ptr<Sink> makeCaptureSink(const std::string& folder) {
  return std::make_unique<CaptureSink>(folder);
}

}  // namespace tev::host
