// A thread that only sleeps until the next due time, on the monotonic clock, and records the
// intervals between its wake-ups. These are the reference for the sampling intervals of a plug-in.
#pragma once

#include <atomic>
#include <cstdint>
#include <thread>

#include "host/timing/distribution.h"

namespace tev::host {

class ReferenceTimer {
 public:
  explicit ReferenceTimer(std::uint64_t interval_usec) : interval_usec_(interval_usec) {}
  ~ReferenceTimer() { stop(); }
  ReferenceTimer(const ReferenceTimer&) = delete;
  ReferenceTimer& operator=(const ReferenceTimer&) = delete;

  void start();
  void stop();

  // The CPU time and the wake-ups of the timer's thread so far. After stop(), the result of the
  // last call before it.
  struct Usage {
    std::uint64_t cpu_nsec = 0;
    std::uint64_t wake_ups = 0;
  };
  Usage usage();

  // The times from one wake-up to the next, in nanoseconds. To be read after stop().
  const Distribution& intervals() const { return intervals_; }

 private:
  void run();

  std::uint64_t interval_usec_;
  std::atomic<bool> running_{false};
  std::atomic<std::uint64_t> wake_ups_{0};
  Usage usage_;
  Distribution intervals_;  // used only by the thread while it runs
  std::thread thread_;
};

}  // namespace tev::host
