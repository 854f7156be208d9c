// The events of capture files as a source.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/capture/chunk_reader.h"
#include "host/capture/head.h"
#include "host/capture/run_counts.h"
#include "host/events/event_source.h"

namespace tev::host {

// A span of time, in microseconds since the Unix epoch. The end does not belong to it.
struct TimeSpan {
  std::uint64_t from_usec = 0;
  std::uint64_t to_usec = UINT64_MAX;
};

// What is known of one file of a source.
struct CaptureFileState {
  std::string path;
  std::uint64_t size = 0;       // bytes
  std::uint64_t read = 0;       // bytes so far
  std::uint64_t last_usec = 0;  // last time stamp so far
  bool is_finished = false;     // its writer has closed it
  std::vector<Damage> damages;
};

// A step of the real-time clock against the monotonic clock.
struct ClockStep {
  std::uint64_t at_usec = 0;  // after the step, since the Unix epoch
  std::int64_t by_usec = 0;
};

// Reads several files as one, in the order of time of their chunks.
class CaptureSource final : public EventSource {
 public:
  // At least one path is needed. Throws RunError when no file can be used, or when their heads
  // differ so much that they cannot be read as one.
  explicit CaptureSource(const std::vector<std::string>& paths, const TimeSpan& span = {});

  // Of the file that begins first.
  const CaptureHead& head() const { return head_; }

  std::string name() const override { return head_.source; }
  const SchemaView& schema() const override { return *schema_; }

  // Passes the events of the next update of the recording. False at the end of all files.
  bool fetch(const BlockConsumer& take, const std::function<bool()>& interrupted) override;

  // Of the span: from the update that contains its beginning to the one that contains its end.
  std::optional<std::vector<DeviceCounts>> counts() const override { return counts_.sum(); }

  // The beginning of the recording or of the span, whichever is later.
  std::uint64_t beginUsec() const { return begin_usec_; }

  // The last time stamp of the chunks so far, inside the span.
  std::uint64_t nowUsec() const override { return now_usec_; }

  // The first time stamp of the next chunk; nothing at the end of all files.
  std::optional<std::uint64_t> nextUsec();

  // Bytes that were read, and of all files.
  std::uint64_t readBytes() const;
  std::uint64_t size() const;

  // Up to the chunks that were read.
  const std::vector<ClockStep>& clockSteps() const { return clock_steps_; }

  // Errors of single files and chunks, which were passed over: one sentence each.
  const std::vector<std::string>& problems() const { return problems_; }

  // The files in their order. The places without a sound chunk are complete at the end.
  std::vector<CaptureFileState> files() const;

 private:
  struct Input {
    std::unique_ptr<ChunkReader> reader;
    std::uint32_t part;  // of its recording
  };

  void noteMissingParts(std::vector<CaptureHead> heads);
  Input* earliest();
  bool takeChunk(const Input& input, const Chunk& chunk, const BlockConsumer& take);
  void takeClocks(const ChunkReader& reader, const Chunk& chunk);
  bool isOutside(const ChunkHeader& header) const;
  void passEvents(Blocks blocks, const ChunkHeader& header, const BlockConsumer& take) const;

  TimeSpan span_;
  std::vector<Input> inputs_;
  CaptureHead head_;
  std::optional<SchemaView> schema_;
  RunCounts counts_;
  std::optional<ClockPair> clocks_;
  const ChunkReader* clocks_of_ = nullptr;
  std::vector<ClockStep> clock_steps_;
  std::uint64_t begin_usec_ = 0;
  std::uint64_t now_usec_ = 0;
  bool is_past_span_ = false;  // the update that contains the end of the span was read
  std::vector<std::string> problems_;
};

// A line for each damaged place; empty when there is none.
std::string damageText(const CaptureSource& source);

// A line for each file that its writer has not closed; empty when there is none.
std::string unfinishedText(const CaptureSource& source);

// "FILE: byte 1234: 56 bytes are damaged and were passed over".
std::string describe(const CaptureFileState& file, const Damage& damage);

}  // namespace tev::host
