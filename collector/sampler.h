#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <string_view>
#include <thread>
#include <vector>

#include "collector/api.h"
#include "collector/clock.h"
#include "collector/ledger.h"
#include "collector/sampled_device.h"
#include "src/support/malloc_ptr.h"
#include "src/support/mutex.h"

namespace tev::events::multipath {

// Samples devices on its own thread and passes the samples to the host's thread.
//
// The host's thread makes all calls: set-up, start, swap and stop. Between start and stop the
// devices may be used only through this class.
class Sampler {
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

  // Starts the thread, unless it runs. Throws std::system_error when the thread cannot be
  // created.
  void start();
  // Ends the thread. Waits for the current read, but not for the interval.
  void stop();
  // Whether the thread has been started and not yet stopped.
  bool isRunning() const { return thread_.joinable(); }
  // Whether the thread has ended by an exception. May be called from any thread.
  bool hasFailed() const { return failed_; }

  // The body of the thread: passes, until `stop`.
  void run() TEV_EXCLUDES(mutex_);

  // One pass over all devices.
  void samplePass() TEV_EXCLUDES(mutex_);

  // Appends, for each device in order, the buffers that were filled since the last call. The
  // other half of each device is emptied and filled from now on. Waits for at most one pass.
  void swap(std::vector<EventBuffer*>& device_buffers, std::vector<EventBuffer*>& plane_buffers)
      TEV_EXCLUDES(mutex_);

  // Any thread.
  const PassLedger& passes() const { return passes_; }

 private:
  void runUntilStopped();
  void noteEnd(std::string_view reason);
  void pass() TEV_REQUIRES(mutex_);
  void sample(SampledDevice& device) TEV_REQUIRES(mutex_);
  void noteRefusedRead(SampledDevice& device, vuna_status status, std::uint64_t timestamp);
  static void noteReadAgain(SampledDevice& device);
  void waitUntil(Clock::TimePoint due, support::MutexLock& lock) TEV_REQUIRES(mutex_);

  const Api& api_;
  Clock& clock_;
  Settings settings_;
  std::vector<SampledDevice*> devices_;       // not changed while the thread runs
  support::MallocPtr<std::uint32_t> values_;  // one read of one device; used by the thread
  std::size_t num_values_ = 0;
  PassLedger passes_;

  support::Mutex mutex_;  // held for a whole pass, and for a whole swap
  // Two conditions, so that a swap does not wake the thread from its interval.
  std::condition_variable wake_;     // between passes: stop
  std::condition_variable swapped_;  // while a swap is let in: it is done, or stop
  std::atomic<bool> running_{false};
  std::atomic<bool> failed_{false};
  std::atomic<std::uint32_t> swaps_waiting_{0};
  std::uint64_t swaps_done_ TEV_GUARDED_BY(mutex_) = 0;
  std::thread thread_;
};

}  // namespace tev::events::multipath
