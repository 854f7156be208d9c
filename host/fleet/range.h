// The messages of a partition from one offset to another, as they become files.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <tuple>
#include <unordered_map>
#include <vector>

#include "host/bus/message.h"
#include "host/fleet/fleet_counts.h"
#include "host/fleet/intake.h"
#include "host/fleet/sequences.h"

namespace tev::host {

// A range ends before the message with which it would exceed one of these. They decide which events
// are in which file, so they do not change in a folder.
struct RangeLimits {
  std::uint64_t bytes = std::uint64_t{256} << 20;  // of event blocks
  std::uint64_t messages = 100'000;
  std::uint64_t seconds = 600;  // between two messages of a source, by their time stamps

  bool operator==(const RangeLimits&) const = default;
};

// A message that belongs to a range. Its blocks are still packed.
struct KeptMessage {
  RunId run;
  std::uint64_t first = 0;    // number of its first event
  std::uint64_t skipped = 0;  // events at its beginning that were taken before
  std::shared_ptr<const FleetSchema> schema;
  BatchCodec codec = BatchCodec::none;
  std::size_t size = 0;  // bytes of the blocks
  std::vector<std::uint8_t> value;
};

struct LostEvents {
  RunId run;
  std::uint64_t first = 0;
  std::uint64_t events = 0;
  bool is_begin = false;  // of the run
};

// The rows of one file.
struct RangeTable {
  std::uint64_t hour = 0;  // since the Unix epoch
  std::shared_ptr<const EventLayout> layout;
  std::uint64_t rows = 0;
  std::size_t longest_source = 0;  // bytes
  std::size_t longest_type = 0;    // bytes of a type's name
};

class Range {
 public:
  static constexpr std::size_t kMostTables = 256;
  static constexpr std::size_t kMostLosses = 1000;  // that are listed
  static constexpr std::size_t kMostSchemaBytes = std::size_t{256} << 20;

  explicit Range(std::int64_t start) : start_(start), end_(start) {}

  // Whether the range has to end before a message with these contents.
  bool isFull(const RangeLimits& limits, const MessageHead& head, const Contents& contents) const;

  // Whether it cannot take any message more, whatever its contents are.
  bool isFull(const RangeLimits& limits) const { return counts_.messages >= limits.messages; }

  // Notes the events that are missing before the message.
  void noteLoss(const MessageHead& head, const Arrival& arrival);

  // Takes the message. Throws Rejected when a range without other messages cannot take it.
  void add(const IncomingMessage& message, const MessageHead& head, const Arrival& arrival,
           const Contents& contents);

  // The message at this offset has been dealt with.
  void pass(std::int64_t offset) {
    end_ = offset + 1;
    ++counts_.messages;
  }

  // The offsets [start, end).
  std::int64_t start() const { return start_; }
  std::int64_t end() const { return end_; }
  bool isEmpty() const { return end_ == start_; }

  FleetCounts& counts() { return counts_; }
  const FleetCounts& counts() const { return counts_; }
  const std::vector<KeptMessage>& messages() const { return messages_; }
  const std::vector<LostEvents>& losses() const { return losses_; }

  // In the order of the files' names.
  std::vector<RangeTable> tables() const;

  // Of the messages that are kept.
  std::size_t memory() const { return memory_; }

 private:
  // What a file's name depends on.
  using TableKey = std::tuple<std::uint64_t, std::string, std::string>;
  static TableKey keyOf(std::uint64_t hour, const EventLayout& layout) {
    return {hour, layout.kind, layout.digest};
  }

  struct Fit {
    std::size_t tables = 0;     // with the message
    bool is_ambiguous = false;  // two layouts would have the same file
  };
  Fit fitOf(const Contents& contents) const;

  std::int64_t start_;
  std::int64_t end_;
  FleetCounts counts_;
  std::vector<KeptMessage> messages_;
  std::vector<LostEvents> losses_;
  std::map<TableKey, RangeTable> tables_;
  std::unordered_map<std::string, std::uint64_t> first_usec_;  // by source
  std::set<const FleetSchema*> schemas_;
  std::size_t schema_bytes_ = 0;
  std::size_t memory_ = 0;
};

}  // namespace tev::host
