// The exports of libvuna_common.so: the names of statuses, and the version of the simulated SDK.
#pragma once

#include "sdk/vuna_abi.h"

namespace simulator {

// The statuses that the simulator itself returns, in addition to success and the two slot statuses.
inline constexpr vuna_status kFailure = 1;
inline constexpr vuna_status kBadArgument = 2;
inline constexpr vuna_status kNoMemory = 3;
inline constexpr vuna_status kDeviceGone = 4;
inline constexpr vuna_status kWrongState = 5;
inline constexpr vuna_status kUnreadable = 6;
// A scenario that cannot be played. The telemetry library returns the reason as the name of this
// status.
inline constexpr vuna_status kScenarioRefused = 1000;

}  // namespace simulator

extern "C" {

// The name of a status, with static storage; null for a number without a name.
__attribute__((visibility("default"))) const char* vuna_common_status_name(vuna_status status);

__attribute__((visibility("default"))) const char* vuna_common_version();
}
