#include "collector/clock.h"

#include "src/support/clock.h"

namespace tev::events::multipath {
namespace {

class SystemClock final : public Clock {
 public:
  std::uint64_t realtimeUsec() override { return support::realtimeUsec(); }

  TimePoint now() override { return std::chrono::steady_clock::now(); }

  void waitUntil(TimePoint due, std::unique_lock<std::mutex>& lock, std::condition_variable& wake,
                 const std::function<bool()>& awake) override {
    if (due == kNever)
      wake.wait(lock, awake);
    else
      wake.wait_until(lock, due, awake);
  }
};

}  // namespace

Clock& Clock::system() {
  static SystemClock clock;
  return clock;
}

Clock::TimePoint after(Clock::TimePoint start, std::uint64_t interval_usec) {
  const auto reach = std::chrono::floor<std::chrono::microseconds>(Clock::kNever - start).count();
  if (interval_usec >= static_cast<std::uint64_t>(reach)) return Clock::kNever;
  return start + std::chrono::microseconds(static_cast<std::int64_t>(interval_usec));
}

}  // namespace tev::events::multipath
