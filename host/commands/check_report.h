// What `tev-host check` finds, and how it is printed.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/commands/measurement.h"
#include "host/events/schema_view.h"
#include "host/plugin/device_info.h"

namespace tev::host {

struct CheckedDevice {
  DeviceInfo info;
  SampleSize sample;                 // of a device that is sampled
  std::optional<double> link_gbits;  // nothing: not known
};

// A counter of bytes, and the fastest link on which the interval follows it.
struct ByteCounter {
  std::string type;
  std::string name;
  unsigned bits = 0;
  double most_gbits = 0;
};

struct CheckReport {
  std::string reason;                // why a run would not work, on one line; empty: it would
  std::vector<std::string> details;  // further lines about the reason
  std::vector<std::string> warnings;

  std::string plugin_path;
  std::string plugin_name;
  std::optional<std::string> sdk_library;  // nothing: the plug-in has no such option
  std::optional<SchemaView> schema;        // nothing: the set-up failed
  // Nothing: the plug-in does not describe them.
  std::optional<std::vector<CheckedDevice>> devices;
  std::optional<std::uint64_t> interval_usec;  // nothing: not known; 0: no pause
  std::uint64_t update_msec = 0;
  std::optional<std::uint64_t> threads;    // of the sampled devices; nothing: not known
  std::vector<ByteCounter> byte_counters;  // empty without an interval
  std::optional<Measurement> measurement;

  bool works() const { return reason.empty(); }
  std::size_t numSampled() const;
  // Of all sampled devices together.
  SampleSize sample() const;
  std::uint64_t memoryBytes() const;
  // Nothing when the interval is 0 or not known.
  std::optional<Seconds> interval() const;
};

// The numbers of sampling threads to compare: powers of two up to the number of devices, that
// number, and the chosen one.
std::vector<std::size_t> threadNumbers(const CheckReport& report);

std::string asText(const CheckReport& report);
std::string asJson(const CheckReport& report);

}  // namespace tev::host
