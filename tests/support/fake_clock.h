// A clock that stands still until it is waited on: tests of the sampling thread take no time.
#pragma once

#include <atomic>

#include "collector/clock.h"

namespace tev::test {

class FakeClock final : public events::multipath::Clock {
 public:
  std::uint64_t realtimeUsec() override { return realtime_usec; }
  TimePoint now() override { return TimePoint(std::chrono::microseconds(monotonic_usec)); }

  // Moves both clocks on to `due`, and ends the sampling after `passes` waits.
  void waitUntil(TimePoint due, std::unique_lock<std::mutex>& lock, std::condition_variable& wake,
                 const std::function<bool()>& awake) override {
    waits.push_back(std::chrono::duration_cast<std::chrono::microseconds>(due - now()).count());
    if (--passes <= 0) {
      finished = true;
      wake.wait(lock, awake);
      return;
    }
    realtime_usec += static_cast<std::uint64_t>(waits.back());
    monotonic_usec += waits.back();
  }

  // Each clock starts later than all that was logged by an earlier one: some warnings are limited
  // in time, for the whole process.
  static inline std::uint64_t next_start_usec = 1'700'000'000'000'000;
  std::uint64_t realtime_usec = next_start_usec += 3'600'000'000;
  std::int64_t monotonic_usec = 5'000'000;
  int passes = 1;                     // to make
  std::atomic<bool> finished{false};  // they have been made; all else may be looked at then
  std::vector<std::int64_t> waits;    // microseconds, one per pass
};

}  // namespace tev::test
