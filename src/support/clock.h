#pragma once

#include <cstdint>

namespace tev::support {

// The real-time clock: microseconds since the Unix epoch.
std::uint64_t realtimeUsec() noexcept;

}  // namespace tev::support
