// Every option that the plug-in reads: its key, its values and its meaning.
#pragma once

#include <cstdint>
#include <span>

#include "tev/event_provider.h"

namespace tev::events::multipath {

using Option = tev_multipath_option_t;

inline constexpr Option kLibraryPath{
    .key = "multipath-vuna-lib-path",
    .kind = TEV_OPTION_PATH,
    .unit = "",
    .default_value = "",
    .range = "",
    .meaning = "path of the SDK's telemetry library; missing: the next key",
};

inline constexpr Option kFallbackLibraryPath{
    .key = "vuna-telemetry-lib-path",
    .kind = TEV_OPTION_PATH,
    .unit = "",
    .default_value = "/opt/quorvane/vuna/lib/aarch64-linux-gnu/libvuna_telemetry.so",
    .range = "",
    .meaning = "the same, when the key above is missing",
};

inline constexpr Option kDevices{
    .key = "multipath-devices",
    .kind = TEV_OPTION_NAMES,
    .unit = "",
    .default_value = "",
    .range = "names between commas; empty: all",
    .meaning = "the devices to sample, by network interface, or by RDMA device where there is none",
};

inline constexpr Option kSampleInterval{
    .key = "multipath-sample-interval-usec",
    .kind = TEV_OPTION_NUMBER,
    .unit = "microseconds",
    .default_value = "1000000",
    .range = "0: without a pause, far faster than any host fetches",
    .meaning = "time from one sample to the next",
};

inline constexpr Option kUpdate{
    .key = "update",
    .kind = TEV_OPTION_NUMBER,
    .unit = "milliseconds",
    .default_value = "1000",
    .range = "",
    .meaning = "time between two rounds of `progress`; sizes the buffers",
};

inline constexpr Option kMaxBufferSize{
    .key = "multipath-max-buffer-size",
    .kind = TEV_OPTION_NUMBER,
    .unit = "bytes",
    .default_value = "0",
    .range = "0: from interval and update",
    .meaning = "size of one buffer of one device; there are two",
};

inline constexpr Option kClearSampledCounters{
    .key = "multipath-clear-sampled-counters",
    .kind = TEV_OPTION_BOOLEAN,
    .unit = "",
    .default_value = "false",
    .range = "1, true or True: yes; anything else: no",
    .meaning = "read with the SDK's clearing call",
};

inline constexpr Option kSdkLogLevel{
    .key = "multipath-sdk-log-level",
    .kind = TEV_OPTION_WORD,
    .unit = "",
    .default_value = "warning",
    .range = "disable, crit, error, warning, info, debug, trace",
    .meaning = "the SDK's own log on standard error",
};

// All options, in the order in which they are listed for people.
std::span<const Option> options();

}  // namespace tev::events::multipath
