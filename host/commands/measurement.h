// Samples for a short time as fast as is useful, to find out how fast counters move and how long
// a pass takes.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/events/byte_counters.h"
#include "host/plugin/plugin_options.h"

namespace tev::host {

// One counter, over all series of its type.
struct MeasuredCounter {
  std::string type;
  std::string name;
  unsigned bits = 0;
  std::uint64_t largest_step = 0;          // from one sample to the next
  double highest_rate = 0;                 // per second, over 10 ms
  bool decreases = false;                  // then it is a gauge, or was reset: the others are 0
  std::optional<Seconds> safe_interval{};  // at that rate; nothing when it did not move
};

// The passes of one sampling thread over all devices, without a pause between them.
struct MeasuredPass {
  std::size_t passes = 0;
  Seconds mean{};
  Seconds longest{};
  // The mean time from the read of a device to the next read, in the order of sampling; empty when
  // some reads failed.
  std::vector<std::pair<std::string, Seconds>> reads;
};

struct MeasuredDevice {
  std::string name;
  std::uint64_t samples = 0;
  std::uint64_t failed = 0;
  std::string last_failure;
};

struct Measurement {
  Seconds lasted{};    // without the passes
  Seconds interval{};  // the wanted one; a pass may take longer
  std::vector<MeasuredDevice> devices;
  std::vector<MeasuredCounter> counters;
  std::optional<MeasuredPass> pass;  // nothing: fewer than two passes
  std::string pending_reads;         // at the end; names the devices
};

// Sets the plug-in up again, twice, with other intervals. The counters are not cleared, whatever
// the options say. Ends early when the user asks to stop. Throws RunError, also when a read does
// not return while the passes are measured.
Measurement measure(const PluginOptions& options, std::chrono::nanoseconds duration);

// The time of a pass of the thread that takes longest, when so many threads share the devices.
Seconds longestShare(const MeasuredPass& pass, std::size_t threads);

}  // namespace tev::host
