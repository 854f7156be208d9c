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

  // What its thread has used up to now, or to the last call before stop().
  struct Usage {
    std::uint64_t cpu_nsec = 0;
    std::uint64_t wake_ups = 0;
  };
  Usage usage();

  // Of the time from one wake-up to the next, in nanoseconds. To be looked at after stop().
  const Distribution& intervals() const { return intervals_; }

 private:
  void run(std::uint64_t interval_usec);

  std::atomic<bool> running_{true};
  std::atomic<std::uint64_t> wake_ups_{0};
  Usage usage_;
  Distribution intervals_;  // the thread's, while it runs
  std::thread thread_;
};

}  // namespace tev::host
