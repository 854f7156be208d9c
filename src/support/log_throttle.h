#pragma once

#include <atomic>
#include <cstdint>

namespace tev::support {

// Allows one message of a call site in ten seconds, for all threads together. Each call site needs
// its own object with static storage. Test the level first, so that a message of a disabled level
// does not count.
class LogThrottle {
 public:
  static constexpr std::uint64_t kQuietUsec = 9'999'999;

  bool admit(std::uint64_t now_usec) noexcept {
    std::uint64_t last = last_usec_.load(std::memory_order_relaxed);
    return now_usec - last > kQuietUsec &&
           last_usec_.compare_exchange_strong(last, now_usec, std::memory_order_relaxed);
  }

 private:
  std::atomic<std::uint64_t> last_usec_{0};
};

}  // namespace tev::support
