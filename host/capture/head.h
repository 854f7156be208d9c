// What a capture file says about itself.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/capture/format.h"
#include "host/events/event_source.h"

namespace tev::host {

struct CaptureHead {
  std::uint32_t version = kCaptureVersion;
  std::vector<std::string> schemas;     // JSON texts, by the index in the blocks
  std::vector<std::string> schema_ids;  // of these texts
  std::string source;                   // name of the source of the events
  std::string writer;                   // program and version
  std::string plugin;                   // path; empty: not a plug-in
  std::string plugin_version;           // three numbers; the plug-in's name is the source
  std::vector<std::pair<std::string, std::string>> options;  // of the plug-in
  std::string host;                                          // name of the machine
  ClockPair start{};
  std::uint64_t interval_usec = 0;  // between two samples; 0: not known
  bool clear_on_read = false;       // each sample is the increase since the previous one
  std::uint32_t part = 0;           // of a recording in several files, from 0
  // Of a spool: the run that the events have on the message bus.
  std::string bus_source;
  std::string bus_run;  // 16 hexadecimal digits
};

// JSON in UTF-8. Texts that are not UTF-8 are written with \xhh in place of wrong bytes.
std::string toJson(const CaptureHead& head);

// Unknown members are ignored. Throws RunError when the text is broken, or of a newer version than
// this program knows.
CaptureHead headFromJson(std::string_view text);

// The counts of the devices, as the source reports them.
std::string toJson(const std::vector<DeviceCounts>& counts);
std::vector<DeviceCounts> countsFromJson(std::string_view text);  // throws RunError

// What was counted after `before`.
DeviceCounts since(const DeviceCounts& before, DeviceCounts counts);

// Adds what was counted in a later run.
void add(DeviceCounts& sum, const DeviceCounts& counts);

}  // namespace tev::host
