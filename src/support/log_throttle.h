#pragma once

#include <atomic>
#include <cstdint>

namespace tev::support {

// Lets one message of a call site through in ten seconds, across all threads. One object per call
// site, with static storage; ask it after the level test, so that a level that is off uses nothing
// up.
class LogThrottle {
 public:
  bool admit(std::uint64_t now_usec) noexcept {
    std::uint64_t last = last_usec_.load(std::memory_order_relaxed);
    return now_usec - last > kQuietUsec &&
           last_usec_.compare_exchange_strong(last, now_usec, std::memory_order_relaxed);
  }

 private:
  static constexpr std::uint64_t kQuietUsec = 9'999'999;
  std::atomic<std::uint64_t> last_usec_{0};
};

}  // namespace tev::support
