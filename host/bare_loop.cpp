#include "host/bare_loop.h"

#include <pthread.h>
#include <sys/prctl.h>
#include <time.h>

#include <algorithm>

namespace tev::host {
namespace {

constexpr std::uint64_t kNsecPerSecond = 1'000'000'000;
constexpr std::uint64_t kLongestSleep = kNsecPerSecond / 10;  // then it looks whether it is to end

std::uint64_t nowNsec(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * kNsecPerSecond +
         static_cast<std::uint64_t>(now.tv_nsec);
}

void sleepUntil(std::uint64_t nsec) {
  const timespec due{static_cast<time_t>(nsec / kNsecPerSecond),
                     static_cast<long>(nsec % kNsecPerSecond)};
  clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &due, nullptr);
}

}  // namespace

BareLoop::BareLoop(std::uint64_t interval_usec)
    : thread_([this, interval_usec] { run(interval_usec); }) {}

void BareLoop::stop() {
  running_ = false;
  if (thread_.joinable()) thread_.join();
}

BareLoop::Usage BareLoop::usage() {
  clockid_t clock{};
  if (thread_.joinable() && pthread_getcpuclockid(thread_.native_handle(), &clock) == 0)
    usage_ = {.cpu_nsec = nowNsec(clock), .wake_ups = wake_ups_};
  return usage_;
}

void BareLoop::run(std::uint64_t interval_usec) {
  prctl(PR_SET_TIMERSLACK, 1);
  const std::uint64_t interval = interval_usec * 1'000;
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
    due = std::max(due, now - std::min(now, interval));  // nothing is caught up in a burst
    ++wake_ups_;
  }
}

}  // namespace tev::host
