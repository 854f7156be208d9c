// A source of events.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "host/events/schema_view.h"

namespace tev::host {

// Whole event blocks, without gaps (docs/formats.md).
using Blocks = std::span<const std::uint8_t>;

// Takes blocks, which are valid only during the call.
using BlockConsumer = std::function<void(Blocks)>;

// The number of a device's samples so far, by outcome, as counted by the source.
struct DeviceCounts {
  std::string device{};
  std::uint64_t lost = 0;    // dropped because nobody fetched them in time
  std::uint64_t failed = 0;  // reads that the device refused, or in which it filled in nothing

  // Why, where the source knows it; otherwise zero and empty.
  std::uint64_t refused = 0;                // of those that failed
  std::uint64_t nothing_filled = 0;         // of those that failed
  std::uint64_t missed_by_overrun = 0;      // not read, because an earlier pass took too long
  std::uint64_t missed_by_late_wakeup = 0;  // not read, because the thread was woken too late
  std::string last_failure{};               // what the device reported then
};

// A plug-in that samples, a recording, a bus. All calls come from one thread.
class EventSource {
 public:
  EventSource() = default;
  virtual ~EventSource() = default;
  EventSource(const EventSource&) = delete;
  EventSource& operator=(const EventSource&) = delete;

  // For people.
  virtual std::string name() const = 0;

  // Describes all blocks of this source. Does not change and lives as long as the source.
  virtual const SchemaView& schema() const = 0;

  // Passes all available blocks to `take`, in one call or several. Returns when no more blocks
  // are available or `interrupted` returns true. False when the source has ended. Throws
  // RunError.
  virtual bool fetch(const BlockConsumer& take, const std::function<bool()>& interrupted) = 0;

  // Ends the sampling, if the source samples. May be called again.
  virtual void stop() {}

  // After stop(): passes the remaining blocks. Throws RunError.
  virtual void drain(const BlockConsumer& /*take*/, const std::function<bool()>& /*interrupted*/) {}

  // For each device. Nothing when the source does not count. May change with every fetch.
  virtual std::optional<std::vector<DeviceCounts>> counts() const { return std::nullopt; }
};

}  // namespace tev::host
