// The interface of a source of events.
#pragma once

#include <chrono>
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
  std::uint64_t lost = 0;    // dropped because the host did not fetch them in time
  std::uint64_t failed = 0;  // the device refused the read or did not fill in a counter

  // The reasons, if the source reports them; otherwise zero and empty.
  std::uint64_t refused = 0;                // of those that failed
  std::uint64_t nothing_filled = 0;         // of those that failed
  std::uint64_t failed_otherwise = 0;       // of those that failed
  std::uint64_t missed_by_overrun = 0;      // not read, because an earlier pass took too long
  std::uint64_t missed_by_late_wakeup = 0;  // not read, because the thread was woken too late
  std::uint64_t discarded = 0;              // read, and dropped before the host fetched them
  std::uint64_t last_good_usec = 0;         // time stamp of the last sample that was fetched
  std::uint64_t left_out = 0;               // batches without the device, whose read took too long
  std::uint64_t undelivered = 0;            // read, but did not reach the message bus
  std::string last_failure{};               // text of the last failure

  bool operator==(const DeviceCounts&) const = default;
};

// A source of events, for example a plug-in that samples, a recording, or a message bus. All calls
// come from one thread.
class EventSource {
 public:
  EventSource() = default;
  virtual ~EventSource() = default;
  EventSource(const EventSource&) = delete;
  EventSource& operator=(const EventSource&) = delete;

  // The name to show to the user.
  virtual std::string name() const = 0;

  // Describes all blocks of this source. Does not change and lives as long as the source.
  virtual const SchemaView& schema() const = 0;

  // Passes all available blocks to `take`, in one call or several. Returns when no more blocks
  // are available or `interrupted` returns true, which is called again and again while the source
  // does not answer. False when the source has ended. Throws RunError.
  virtual bool fetch(const BlockConsumer& take, const std::function<bool()>& interrupted) = 0;

  // Ends the sampling, if the source samples. May be called again. False when `interrupted` has
  // ended the wait for the source. The source is then not used any more, apart from its counts.
  virtual bool stop(const std::function<bool()>& /*interrupted*/) { return true; }

  // After stop(): passes the remaining blocks. Throws RunError.
  virtual void drain(const BlockConsumer& /*take*/, const std::function<bool()>& /*interrupted*/) {}

  // The counts of each device; empty when the source does not count. May change with every fetch.
  virtual std::optional<std::vector<DeviceCounts>> counts() const { return std::nullopt; }

  // The time that the events have reached, in microseconds since the Unix epoch: now, unless the
  // source plays a recording.
  virtual std::uint64_t nowUsec() const {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::microseconds>(now).count());
  }

  // What is known of device reads that do not return; empty: nothing. For the user.
  virtual std::string pendingReads() const { return ""; }
};

}  // namespace tev::host
