#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>

#include "collector/sampled_device.h"
#include "src/support/log_throttle.h"

namespace tev::events::multipath {

// Watches the reads of a sampling thread: tells the host's thread which read holds up its swaps,
// and logs a read that holds up a whole swap, and its end.
class ReadWatch {
 public:
  // The sampling thread calls these before and after each read.
  void begin(const SampledDevice& device) {
    device_.store(&device, std::memory_order_release);
    raise();
  }
  void end() { raise(); }

  // The host's thread makes all other calls.

  // The device whose read is in progress, or null.
  const SampledDevice* reading() const;

  // A swap begins.
  void swapBegins();
  // Whether the swap has found a read that has held up an earlier swap.
  bool isStillHeldUp() const;
  // The swap was given up. `now_usec`: the real-time clock.
  void swapWasGivenUp(std::uint64_t now_usec);
  // The swap has been made, or the thread has ended.
  void passHasEnded();

  // For another set of devices.
  void forget();

 private:
  struct Read {
    const SampledDevice* device;
    std::uint64_t step;
    std::chrono::steady_clock::time_point seen;  // for the first time
    bool logged;
  };

  void raise() {
    step_.store(step_.load(std::memory_order_relaxed) + 1, std::memory_order_release);
  }
  std::optional<Read> current() const;

  // The read that was begun last. Written by the sampling thread.
  std::atomic<const SampledDevice*> device_{nullptr};
  std::atomic<std::uint64_t> step_{0};  // raised before and after each read: odd while it lasts

  // Used by the host's thread.
  std::optional<Read> at_begin_;  // of this swap
  std::optional<Read> hung_;      // it has held up the last swap
  const SampledDevice* last_named_ = nullptr;
  support::LogThrottle throttle_;  // of further lines about the same device
};

}  // namespace tev::events::multipath
