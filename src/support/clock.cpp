#include "src/support/clock.h"

#include <time.h>

namespace tev::support {

std::uint64_t realtimeUsec() noexcept {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000 +
         static_cast<std::uint64_t>(now.tv_nsec) / 1'000;
}

}  // namespace tev::support
