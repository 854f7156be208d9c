// Where a StreamWorker writes.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "host/events/decoder.h"
#include "host/fleet/intake.h"
#include "host/outputs/output_file.h"

namespace tev::host {

class Sink {
 public:
  Sink() = default;
  virtual ~Sink() = default;
  Sink(const Sink&) = delete;
  Sink& operator=(const Sink&) = delete;

  // Takes the events of the message apart from the first `skipped`. Throws RunError and ClosedPipe.
  virtual void take(const MessageHead& head, const Contents& contents, std::uint64_t skipped) = 0;

  // Afterwards, the system has everything that was taken. Throws RunError and ClosedPipe.
  virtual void flush() = 0;
};

// Calls `visit` with each event that is not skipped and its number.
inline void forEachEvent(const MessageHead& head, const Contents& contents, std::uint64_t skipped,
                         const std::function<void(const Event&, std::uint64_t number)>& visit) {
  std::uint64_t number = head.first;
  decodeBlocks(contents.schema->view, contents.blocks, [&](const Event& event) {
    if (number - head.first >= skipped) visit(event, number);
    ++number;
  });
}

// What an output has made of schemas.
template <class Made>
class PerSchema {
 public:
  template <class Make>
  const Made& of(const std::shared_ptr<const FleetSchema>& schema, Make&& make) {
    const auto known = made_.find(schema);
    if (known != made_.end()) return known->second;
    bytes_ += schema->bytes;
    if (bytes_ > SchemaCache::kMostBytes) {
      made_.clear();
      bytes_ = schema->bytes;
    }
    return made_.emplace(schema, make(schema->view)).first->second;
  }

 private:
  std::map<std::shared_ptr<const FleetSchema>, Made> made_;
  std::size_t bytes_ = 0;  // of the schemas
};

// Each sink writes behind what is there already. The first one writes lines into a file, or to
// standard output for an empty path and "-". The others have a folder, which no other worker uses:
// a table for each layout of events, or capture files for each run of a source. Throw RunError.
std::unique_ptr<Sink> makeJsonlSink(const std::string& path);
std::unique_ptr<Sink> makeCsvSink(const std::string& folder);
std::unique_ptr<Sink> makeCaptureSink(const std::string& folder);

// Throws RunError when another process writes the file.
void expectOnlyWriter(const OutputFile& file);

// Throws RunError.
void makeSinkFolder(const std::string& folder);

}  // namespace tev::host
