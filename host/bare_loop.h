// A thread that does nothing but sleep until the next due time, on the monotonic clock, and note
// when it woke: what the machine has to offer, beside what the plug-in makes of it.
#pragma once

#include <atomic>
#include <cstdint>
#include <thread>

#include "host/distribution.h"

namespace tev::host {

class BareLoop {
 public:
  explicit BareLoop(std::uint64_t interval_usec);
  ~BareLoop() { stop(); }
  BareLoop(const BareLoop&) = delete;
  BareLoop& operator=(const BareLoop&) = delete;

  void stop();

  // Nanoseconds of CPU that its thread has used so far.
  std::uint64_t cpuNsec() const { return cpu_nsec_; }

  // Of the time from one wake-up to the next, in nanoseconds. To be looked at after stop().
  const Distribution& intervals() const { return intervals_; }

 private:
  void run(std::uint64_t interval_usec);

  std::atomic<bool> running_{true};
  std::atomic<std::uint64_t> cpu_nsec_{0};
  Distribution intervals_;  // the thread's, while it runs
  std::thread thread_;
};

}  // namespace tev::host
