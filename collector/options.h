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
    .meaning =
        "path of the SDK's telemetry library; if this key is missing, vuna-telemetry-lib-path is "
        "used",
};

inline constexpr Option kFallbackLibraryPath{
    .key = "vuna-telemetry-lib-path",
    .kind = TEV_OPTION_PATH,
    .unit = "",
    .default_value = "/opt/quorvane/vuna/lib/aarch64-linux-gnu/libvuna_telemetry.so",
    .range = "",
    .meaning = "the same path; used only if multipath-vuna-lib-path is missing",
};

inline constexpr Option kDevices{
    .key = "multipath-devices",
    .kind = TEV_OPTION_NAMES,
    .unit = "",
    .default_value = "",
    .range = "names separated by commas; empty: all devices",
    .meaning =
        "the devices to sample; the name of a device is its network interface, or its RDMA device "
        "if it has no interface",
};

inline constexpr Option kSampleInterval{
    .key = "multipath-sample-interval-usec",
    .kind = TEV_OPTION_NUMBER,
    .unit = "microseconds",
    .default_value = "1000000",
    .range = "0: no pause; samples are taken faster than a host can fetch them",
    .meaning = "time between two samples of a device",
};

inline constexpr Option kUpdate{
    .key = "update",
    .kind = TEV_OPTION_NUMBER,
    .unit = "milliseconds",
    .default_value = "1000",
    .range = "",
    .meaning =
        "time from one fetch of events by the host to the next; determines the size of the buffers",
};

inline constexpr Option kMaxBufferSize{
    .key = "multipath-max-buffer-size",
    .kind = TEV_OPTION_NUMBER,
    .unit = "bytes",
    .default_value = "0",
    .range = "0: computed from multipath-sample-interval-usec and update",
    .meaning = "size of each of the two buffers of a device",
};

inline constexpr Option kClearSampledCounters{
    .key = "multipath-clear-sampled-counters",
    .kind = TEV_OPTION_BOOLEAN,
    .unit = "",
    .default_value = "false",
    .range = "1, true or True: yes; anything else: no",
    .meaning =
        "each read also clears the counters, so a value is the increase since the previous read",
};

inline constexpr Option kSamplingThreads{
    .key = "multipath-sampling-threads",
    .kind = TEV_OPTION_NUMBER,
    .unit = "",
    .default_value = "1",
    .range = "0: one per device; never more than devices",
    .meaning =
        "number of sampling threads, which share the devices; more than one requires an SDK "
        "that allows calls for different devices at the same time",
};

inline constexpr Option kSdkLogLevel{
    .key = "multipath-sdk-log-level",
    .kind = TEV_OPTION_WORD,
    .unit = "",
    .default_value = "warning",
    .range = "disable, crit, error, warning, info, debug, trace",
    .meaning = "level of the SDK's own log, which goes to standard error",
};

// All options, in the order in which they are listed for people.
std::span<const Option> options();

}  // namespace tev::events::multipath
