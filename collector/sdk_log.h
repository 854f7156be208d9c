#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "collector/api.h"

namespace tev::events::multipath {

// The option's words for the SDK's log levels.
struct SdkLogLevel {
  std::string_view word;
  std::uint32_t number;
};
inline constexpr SdkLogLevel kSdkLogLevels[] = {
    {"disable", 10}, {"crit", 20},  {"error", 30}, {"warning", 40},
    {"info", 50},    {"debug", 60}, {"trace", 70},
};

// Routes the SDK's own log to standard error, at the level that one of the words names. Done once
// per process. A failure is logged.
void routeSdkLog(const Api& api, const std::string& level);

}  // namespace tev::events::multipath
