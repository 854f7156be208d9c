#include "host/timing/reference_timer.h"

#include <pthread.h>
#include <sys/prctl.h>
#include <time.h>

#include <algorithm>

#include "host/support/host_threads.h"
#include "host/timing/clock_reading.h"

namespace tev::host {
namespace {

constexpr std::uint64_t kNsecPerSecond = 1'000'000'000;
constexpr std::uint64_t kLongestSleep = kNsecPerSecond / 10;  // then it checks whether it must stop

void sleepUntil(std::uint64_t nsec) {
  const timespec due{static_cast<time_t>(nsec / kNsecPerSecond),
                     static_cast<long>(nsec % kNsecPerSecond)};
  clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &due, nullptr);
}

}  // namespace

void ReferenceTimer::start() {
  running_ = true;
  thread_ = std::thread([this] { run(); });
}

void ReferenceTimer::stop() {
  running_ = false;
  if (thread_.joinable()) thread_.join();
}

ReferenceTimer::Usage ReferenceTimer::usage() {
  clockid_t clock{};
  if (thread_.joinable() && pthread_getcpuclockid(thread_.native_handle(), &clock) == 0)
    usage_ = {.cpu_nsec = nowNsec(clock), .wake_ups = wake_ups_};
  return usage_;
}

void ReferenceTimer::run() {
  const HostThread noted;
  prctl(PR_SET_TIMERSLACK, 1);  // nanoseconds, as on the sampling thread
  const std::uint64_t interval = interval_usec_ * 1'000;
  std::uint64_t due = nowNsec(CLOCK_MONOTONIC);
  std::uint64_t woke = due;
  while (running_) {
    due += interval;
    for (std::uint64_t now = woke; running_ && now < due; now = nowNsec(CLOCK_MONOTONIC))
      sleepUntil(std::min(due, now + kLongestSleep));
    if (!running_) return;
    const std::uint64_t now = nowNsec(CLOCK_MONOTONIC);
    intervals_.add(now - woke);
    woke = now;
    if (now > due + interval) due = now - interval;  // missed wake-ups are skipped
    ++wake_ups_;
  }
}

}  // namespace tev::host
