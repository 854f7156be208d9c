#pragma once

#include <time.h>

#include <cstdint>

namespace tev::host {

// The time of the clock in nanoseconds; 0 when there is no such clock.
inline std::uint64_t nowNsec(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000 +
         static_cast<std::uint64_t>(now.tv_nsec);
}

}  // namespace tev::host
