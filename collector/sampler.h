#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "collector/api.h"
#include "collector/clock.h"
#include "collector/ledger.h"
#include "collector/read_watch.h"
#include "collector/sampled_device.h"
#include "src/support/cache_line.h"
#include "src/support/malloc_ptr.h"
#include "src/support/mutex.h"

namespace tev::events::multipath {

// Samples devices on its own thread and passes the samples to the host's thread.
//
// The host's thread makes all calls: set-up, start, swap and stop. Between start and stop the
// devices may be used only through this class.
class alignas(support::kCacheLine) Sampler {
 public:
  struct Settings {
    std::uint64_t interval_usec = 0;
    bool clear_counters = false;  // read with the SDK's clearing function
  };

  // The functions and the clock must outlive the sampler.
  Sampler(const Api& api, Clock& clock, const Settings& settings)
      : api_(api), clock_(clock), settings_(settings) {}
  Sampler(const Sampler&) = delete;
  Sampler& operator=(const Sampler&) = delete;

  // Sets the devices that are sampled from the next start on. Their addresses must not change.
  void setDevices(std::vector<SampledDevice*> devices);

  // Enlarges the array of values to the size that one read needs; it never shrinks. False when
  // memory is short.
  bool makeRoomFor(std::size_t values);

  // Starts the thread, unless it runs. The due times of samplers that are given the same origin
  // stand on the same grid. Throws std::system_error when the thread cannot be created.
  void start(const std::string& thread_name, std::optional<Clock::TimePoint> origin = {});
  // Asks the thread to end after the current pass. Does not wait.
  void requestStop() { running_ = false; }
  // Ends the thread. Waits for the current pass, but not for the interval. Logs the device that it
  // waits for when a second has passed.
  void stop() TEV_EXCLUDES(mutex_);
  // Whether the thread has been started and not yet stopped.
  bool isRunning() const { return thread_.joinable(); }
  // Whether the thread has ended by an exception. May be called from any thread.
  bool hasFailed() const { return failed_; }

  // The body of the thread: passes, until `stop`.
  void run(std::optional<Clock::TimePoint> origin = {}) TEV_EXCLUDES(mutex_);

  // One pass over all devices.
  void samplePass() TEV_EXCLUDES(mutex_);

  // Hands out the half of each device that was filled since the last call. The other half is
  // emptied and filled from now on. Waits for at most one pass.
  void swap() TEV_EXCLUDES(mutex_);

  // The same for one of several samplers, which must not delay the others: `requestSwap`, and then
  // `trySwap`, which waits until `deadline`, but not a second time for the same read. When trySwap
  // returns false, the pass has not ended: the thread then makes the swap at the end of the pass,
  // and the next call returns its result. Logs when a read holds up the swap, and when that read
  // has ended.
  void requestSwap();
  bool trySwap(std::chrono::steady_clock::time_point deadline) TEV_EXCLUDES(mutex_);

  // Any thread.
  const PassLedger& passes() const { return passes_; }

 private:
  // What a swap that was asked for has become.
  enum class HandOver { none, requested, done };

  void runUntilStopped(std::optional<Clock::TimePoint> origin);
  void noteEnd(std::string_view reason);
  void pass() TEV_REQUIRES(mutex_);
  void sample(SampledDevice& device) TEV_REQUIRES(mutex_);
  void noteRefusedRead(SampledDevice& device, vuna_status status, std::uint64_t timestamp);
  static void noteReadAgain(SampledDevice& device);
  void waitUntil(Clock::TimePoint due, support::MutexLock& lock) TEV_REQUIRES(mutex_);
  void swapHalves() TEV_REQUIRES(mutex_);
  bool takeSwap() TEV_EXCLUDES(mutex_);
  void handOver() TEV_REQUIRES(mutex_);

  const Api& api_;
  Clock& clock_;
  Settings settings_;
  std::vector<SampledDevice*> devices_;       // not changed while the thread runs
  support::MallocPtr<std::uint32_t> values_;  // one read of one device; used by the thread
  std::size_t num_values_ = 0;
  PassLedger passes_;

  ReadWatch reads_;

  support::Mutex mutex_;  // held for a whole pass, and for a whole swap
  // Two conditions, so that a swap does not wake the thread from its interval.
  std::condition_variable wake_;     // between passes: stop
  std::condition_variable swapped_;  // while a swap is let in: it is done, or stop
  std::atomic<bool> running_{false};
  std::atomic<bool> failed_{false};
  std::atomic<std::uint32_t> swaps_waiting_{0};
  std::uint64_t swaps_done_ TEV_GUARDED_BY(mutex_) = 0;
  std::atomic<HandOver> hand_over_{HandOver::none};

  std::thread thread_;
};

}  // namespace tev::events::multipath
