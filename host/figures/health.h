// Whether the devices deliver samples, and what is missing.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/events/event_source.h"

namespace tev::host {

enum class DeviceState : std::uint8_t {
  waiting,   // no sample yet, and no failure
  sampling,  // delivers
  failing,   // the last reads failed
  silent,    // no sample for some time, without a failure
};

// "waiting", "sampling", "failing" or "silent".
const char* nameOf(DeviceState state);

struct DeviceHealth {
  DeviceCounts counts;
  DeviceState state = DeviceState::waiting;
  std::uint64_t last_sample_usec = 0;  // time stamp; 0: no sample yet
  // When the host saw it, since the Unix epoch.
  std::uint64_t arrived_usec = 0;  // the last sample
  std::uint64_t since_usec = 0;    // the state; of a device that delivers no more: that sample

  // The time since the last sample arrived.
  std::uint64_t ageUsec(std::uint64_t now_usec) const {
    return now_usec < arrived_usec ? 0 : now_usec - arrived_usec;
  }
};

// Samples of one device that are missing for one cause, and the time in which they were due.
struct MissingSamples {
  std::string device;
  const char* cause;  // "buffer_full", "refused", ...
  std::uint64_t from_usec;
  std::uint64_t to_usec;
  std::uint64_t samples;
  std::string reason;  // the device's last failure; empty for other causes
};

// A change of a device's state.
struct StateChange {
  std::size_t device;  // index in HealthWatch::devices()
  DeviceState before;
  std::uint64_t lasted_usec;  // how long the state before lasted
};

// The causes for which a sample may be missing.
struct MissingCause {
  std::uint64_t DeviceCounts::*count;
  const char* name;  // in machine-readable output
  const char* text;  // for people
};
const std::vector<MissingCause>& missingCauses();

// The number of missing samples, for all causes.
std::uint64_t missingSamples(const DeviceCounts& counts);

class HealthWatch {
 public:
  // A device is silent when no sample came for `patience_usec`.
  explicit HealthWatch(std::uint64_t patience_usec) : patience_usec_(patience_usec) {}

  // To be called with each sample.
  void sample(const std::string& device, std::uint64_t timestamp_usec);

  // To be called once at the beginning, and after each fetch. `counts` are those of the source; if
  // there are none, the devices are known from their samples.
  void update(const std::vector<DeviceCounts>& counts, std::uint64_t now_usec);

  // To be called after the last update: a device that never delivered is a change, too.
  void end();

  const std::vector<DeviceHealth>& devices() const { return devices_; }

  // Whether the source counts the samples of its devices.
  bool areCounted() const { return are_counted_; }

  std::uint64_t lastUpdateUsec() const { return last_update_usec_; }

  // What the last update found.
  const std::vector<MissingSamples>& missing() const { return missing_; }
  const std::vector<StateChange>& changes() const { return changes_; }

 private:
  DeviceHealth& deviceNamed(const std::string& name);
  void noteMissing(const DeviceCounts& before, const DeviceCounts& now, std::uint64_t now_usec);
  DeviceState stateOf(const DeviceHealth& device, const DeviceCounts& before, bool delivered,
                      std::uint64_t now_usec) const;

  std::uint64_t patience_usec_;
  bool has_begun_ = false;  // after the first update
  bool are_counted_ = false;
  std::uint64_t last_update_usec_ = 0;
  std::vector<DeviceHealth> devices_;
  std::vector<std::uint64_t> seen_usec_;  // by device: last_sample_usec at the last update
  std::vector<MissingSamples> missing_;
  std::vector<StateChange> changes_;
};

// Whether the change is worth a record. The first sample of a device is not.
bool isNews(const StateChange& change, const HealthWatch& health);

// One line for people: "rdma1: reads fail: LINK_ON_FIRE".
std::string describe(const StateChange& change, const DeviceHealth& device);

// "failing for 12.3 s; last sample 12.4 s ago; 12 refused by the device; last failure: ...". Empty
// for a device that delivers and misses nothing.
std::string describe(const DeviceHealth& device, std::uint64_t now_usec);

// The missing samples by cause, and the last failure; empty when nothing is missing:
// "3 refused by the device; last failure: LINK_ON_FIRE".
std::string describeMissing(const DeviceCounts& counts);

}  // namespace tev::host
