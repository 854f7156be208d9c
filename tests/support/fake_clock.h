// A clock that advances only during waits, so that tests of the sampling thread are fast.
#pragma once

#include <atomic>

#include "collector/clock.h"

namespace tev::test {

class FakeClock final : public events::multipath::Clock {
 public:
  std::uint64_t realtimeUsec() override { return realtime_usec; }
  TimePoint now() override { return TimePoint(std::chrono::microseconds(monotonic_usec)); }

  // Moves both clocks on to `due` or later, and ends the sampling after `passes` waits.
  void waitUntil(TimePoint due, std::unique_lock<std::mutex>& lock, std::condition_variable& wake,
                 const std::function<bool()>& awake) override {
    waits.push_back(std::chrono::duration_cast<std::chrono::microseconds>(due - now()).count());
    if (--passes <= 0) {
      finished = true;
      wake.wait(lock, awake);
      return;
    }
    std::int64_t slept = waits.back();
    if (!late_usec.empty()) {
      slept += late_usec.front();
      late_usec.erase(late_usec.begin());
    }
    realtime_usec += static_cast<std::uint64_t>(slept);
    monotonic_usec += slept;
  }

  // Each clock starts later than all messages of earlier clocks, because some warnings are
  // throttled for the whole process.
  static inline std::uint64_t next_start_usec = 1'700'000'000'000'000;
  std::uint64_t realtime_usec = next_start_usec += 3'600'000'000;
  std::int64_t monotonic_usec = 5'000'000;
  int passes = 1;                       // to make
  std::atomic<bool> finished{false};    // they have been made; all else may be looked at then
  std::vector<std::int64_t> waits;      // microseconds, one per pass
  std::vector<std::int64_t> late_usec;  // by how much the next wake-ups come late; then: not at all
};

}  // namespace tev::test
