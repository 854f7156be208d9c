// The plug-in's options that a check reads, and changes of the given ones for set-ups that only
// look.
#pragma once

#include <string>

#include "host/plugin/plugin_options.h"

namespace tev::host {

inline constexpr char kLibraryPathKey[] = "multipath-vuna-lib-path";
inline constexpr char kOtherLibraryPathKey[] = "vuna-telemetry-lib-path";
inline constexpr char kSampleIntervalKey[] = "multipath-sample-interval-usec";
inline constexpr char kUpdateKey[] = "update";
inline constexpr char kMaxBufferSizeKey[] = "multipath-max-buffer-size";
inline constexpr char kClearKey[] = "multipath-clear-sampled-counters";
inline constexpr char kSamplingThreadsKey[] = "multipath-sampling-threads";

// Null when the key is not given. If it is given twice, the last value is used.
const std::string* givenValue(const GivenOptions& given, const std::string& key);

void setOption(PluginOptions& options, const char* key, const std::string& value);

// Reads do not clear the counters, because other programs may be reading them.
void withoutClearing(PluginOptions& options);

}  // namespace tev::host
