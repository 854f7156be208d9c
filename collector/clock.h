#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>

namespace tev::events::multipath {

// The time of the sampling thread: one clock for the time stamps of events, another for intervals,
// and the wait between two passes.
class Clock {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;
  using Duration = TimePoint::duration;
  static constexpr TimePoint kNever = TimePoint::max();

  virtual ~Clock() = default;

  // Microseconds since the Unix epoch; may be stepped at any time.
  virtual std::uint64_t realtimeUsec() = 0;

  // Monotonic.
  virtual TimePoint now() = 0;

  // Waits until `due`, or until `wake` is notified and `awake` returns true. `lock` is released
  // during the wait.
  virtual void waitUntil(TimePoint due, std::unique_lock<std::mutex>& lock,
                         std::condition_variable& wake, const std::function<bool()>& awake) = 0;

  // The clocks of the machine.
  static Clock& system();
};

// `start` plus an interval, or Clock::kNever when the clock's type cannot represent the sum.
Clock::TimePoint after(Clock::TimePoint start, std::uint64_t interval_usec);

}  // namespace tev::events::multipath
