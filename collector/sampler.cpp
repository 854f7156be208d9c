#include "collector/sampler.h"

#include <pthread.h>
#include <sys/prctl.h>

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <utility>

#include "collector/pacing.h"
#include "src/support/checked.h"
#include "src/support/guard.h"
#include "src/support/signals_blocked.h"
#include "tev/logger.h"

namespace tev::events::multipath {
namespace {

constexpr std::uint64_t kPatienceOfStopUsec = 1'000'000;

// Shared by all devices and collectors of the process: one warning of each kind in ten seconds.
support::LogThrottle failed_read_throttle;
support::LogThrottle odd_count_throttle;

// Prefetches the next device's buffers.
void prefetch(const DoubleBuffer::Half& half) {
  __builtin_prefetch(half.device.get());
  __builtin_prefetch(half.plane.get());
}

bool hasRoom(const EventBuffer& buffer, const EventLayout& layout) {
  return buffer.hasRoomFor(layout.eventsPerSample());
}

void write(EventBuffer& buffer, const EventLayout& layout, std::uint64_t timestamp,
           const std::uint32_t* values) {
  if (std::byte* const events = buffer.append(layout.eventsPerSample(), timestamp))
    layout.write(values, events);
}

// The number of samples in the host's half with events that the host has not read.
std::uint64_t unreadSamples(const SampledDevice& device) {
  const auto unread = [](const EventBuffer& buffer, const EventLayout& layout) {
    const std::uint64_t events = buffer.num_events - buffer.read_index;
    const std::uint64_t per_sample = layout.eventsPerSample();
    return per_sample == 0 ? 0 : (events + per_sample - 1) / per_sample;
  };
  const auto& half = device.buffers.handedOut();
  return std::max(unread(*half.device, device.device_layout),
                  unread(*half.plane, device.plane_layout));
}

}  // namespace

void Sampler::setDevices(std::vector<SampledDevice*> devices) {
  devices_ = std::move(devices);
  reads_.forget();
  hand_over_ = HandOver::none;
}

bool Sampler::makeRoomFor(std::size_t values) {
  if (values <= num_values_) return true;
  // The kernel provides zeroed memory of this size page by page: pages that are not used do not
  // use memory. A rest that is never used separates the array from the block behind it.
  support::MallocPtr<std::uint32_t> grown(static_cast<std::uint32_t*>(
      std::calloc(support::checkedAdd(values * sizeof(std::uint32_t), support::kCacheLine), 1)));
  if (!grown) return false;
  values_ = std::move(grown);
  num_values_ = values;
  return true;
}

void Sampler::start(const std::string& thread_name, std::optional<Clock::TimePoint> origin) {
  if (running_.exchange(true)) return;
  failed_ = false;
  try {
    const support::AsynchronousSignalsBlocked blocked;  // the host handles its signals
    thread_ = std::thread([this, thread_name, origin] {
      support::guarded(
          "sampling thread", 0,
          [&] {
            pthread_setname_np(pthread_self(), thread_name.c_str());
            prctl(PR_SET_TIMERSLACK, 1);  // nanoseconds
            runUntilStopped(origin);
            return 0;
          },
          "[multipath] ");
    });
  } catch (...) {
    running_ = false;
    throw;
  }
}

void Sampler::stop() {
  requestStop();
  if (!thread_.joinable()) return;
  // The thread checks the flag with the mutex held and then waits. After this function has taken
  // the mutex, the thread either has seen the flag, or waits and will be woken.
  if (!mutex_.lockUntil(after(std::chrono::steady_clock::now(), kPatienceOfStopUsec))) {
    if (const auto* const device = reads_.reading())
      TEV_LOG_WARNING("[multipath] stop waits for the read of device %s", device->name.c_str());
    mutex_.lock();
  }
  mutex_.unlock();
  wake_.notify_all();
  swapped_.notify_all();
  thread_.join();
  reads_.passHasEnded();
}

// The ledger of every device records the reason when the thread ends early.
void Sampler::runUntilStopped(std::optional<Clock::TimePoint> origin) {
  try {
    run(origin);
  } catch (const std::exception& error) {
    noteEnd(error.what());
    throw;
  } catch (...) {
    noteEnd("unknown exception");
    throw;
  }
}

void Sampler::noteEnd(std::string_view reason) {
  failed_ = true;
  for (auto* const device : devices_)
    device->ledger.noteFailure(clock_.realtimeUsec(), reason, "sampling ended: ");
}

void Sampler::run(std::optional<Clock::TimePoint> origin) {
  if (devices_.empty()) {
    TEV_LOG_DEBUG("[multipath] collectData called with no devices");
    return;
  }
  // The mutex is held during whole passes and released during the wait between them.
  support::MutexLock lock(mutex_);
  Pacing pacing(clock_.now(), settings_.interval_usec, passes_, origin);
  while (running_) {
    const auto began = clock_.now();
    pass();
    if (hand_over_ == HandOver::requested) handOver();
    waitUntil(pacing.next(began, clock_.now()), lock);
  }
}

void Sampler::samplePass() {
  const support::MutexLock lock(mutex_);
  pass();
}

void Sampler::pass() {
  for (std::size_t i = 0; i < devices_.size(); ++i) {
    if (i + 1 < devices_.size()) prefetch(devices_[i + 1]->buffers.filling());
    sample(*devices_[i]);
  }
}

void Sampler::sample(SampledDevice& device) {
  const auto& half = device.buffers.filling();
  if (!hasRoom(*half.device, device.device_layout) || !hasRoom(*half.plane, device.plane_layout)) {
    device.ledger.buffer_full.add(1);
    device.ledger.most_used_bytes.raiseTo(half.usedBytes());
    return;
  }

  const auto timestamp = clock_.realtimeUsec();
  const auto read = settings_.clear_counters ? api_.vuna_telemetry_mp_get_and_clear_counters
                                             : api_.vuna_telemetry_mp_get_counters;
  // Values that the read does not fill must be zero, not the values of another device.
  std::uint32_t* const values = values_.get();
  const auto wanted = device.num_counters;
  std::fill_n(values, wanted, 0);
  std::uint32_t filled = 0;
  reads_.begin(device);
  const auto status = read(device.context, device.slot, &filled, values);
  reads_.end();
  if (status) {
    noteRefusedRead(device, status, timestamp);
    return;
  }
  if (filled == 0) {
    device.ledger.nothing_filled.add(1);
    device.ledger.noteFailure(timestamp, "no counters were filled in");
    return;
  }
  if (filled != device.num_declared) {
    device.ledger.short_reads.add(1);
    if (tev_log_enabled(TEV_LEVEL_WARNING) && odd_count_throttle.admit(timestamp))
      TEV_LOG_WARNING("[multipath] Counters populated %u != num counters %u for device %s", filled,
                      device.num_declared, device.name.c_str());
    if (filled < wanted) std::fill(values + filled, values + wanted, 0);
  }
  write(*half.device, device.device_layout, timestamp, values);
  write(*half.plane, device.plane_layout, timestamp, values);
  device.ledger.delivered.add(1);
  if (device.refusals.in_a_row != 0) noteReadAgain(device);
}

// The throttled warning names only one of all devices. A device whose reads are refused for as long
// as that warning is suppressed gets one line of its own.
void Sampler::noteRefusedRead(SampledDevice& device, vuna_status status, std::uint64_t timestamp) {
  const char* const reason = api_.errorName(status);
  device.ledger.read_refused.add(1);
  device.ledger.noteFailure(timestamp, reason);

  auto& refusals = device.refusals;
  if (refusals.in_a_row++ == 0) refusals.since = clock_.now();
  if (!tev_log_enabled(TEV_LEVEL_WARNING)) return;
  if (failed_read_throttle.admit(timestamp)) {
    refusals.logged = true;
    TEV_LOG_WARNING("[multipath] Could not get counters for device %s: %s", device.name.c_str(),
                    reason);
  }
  if (!refusals.logged_as_lasting &&
      clock_.now() > after(refusals.since, support::LogThrottle::kQuietUsec)) {
    refusals.logged = refusals.logged_as_lasting = true;
    TEV_LOG_WARNING("[multipath] Device %s delivers nothing: %lu reads failed in a row",
                    device.name.c_str(), refusals.in_a_row);
  }
}

void Sampler::noteReadAgain(SampledDevice& device) {
  if (device.refusals.logged)
    TEV_LOG_WARNING("[multipath] Device %s delivers again after %lu failed reads",
                    device.name.c_str(), device.refusals.in_a_row);
  device.refusals = {};
}

// Returns when the next pass is due or sampling must end. The lock is held on return.
void Sampler::waitUntil(Clock::TimePoint due, support::MutexLock& lock) {
  if (due > clock_.now()) {
    clock_.waitUntil(due, lock.forWait(), wake_, [this] { return !running_; });
    return;
  }
  // Without this, passes that follow each other immediately could prevent a waiting swap from
  // taking the mutex.
  if (swaps_waiting_ > 0) {
    const auto seen = swaps_done_;
    swapped_.wait(lock.forWait(),
                  [&]() TEV_REQUIRES(mutex_) { return swaps_done_ != seen || !running_; });
  }
}

void Sampler::swap() {
  ++swaps_waiting_;
  {
    const support::MutexLock lock(mutex_);
    --swaps_waiting_;
    ++swaps_done_;
    swapHalves();
  }
  swapped_.notify_all();
}

void Sampler::requestSwap() {
  reads_.swapBegins();
  auto expected = HandOver::none;
  hand_over_.compare_exchange_strong(expected, HandOver::requested);
}

bool Sampler::trySwap(std::chrono::steady_clock::time_point deadline) {
  while (!takeSwap()) {
    if (reads_.isStillHeldUp() || std::chrono::steady_clock::now() >= deadline) {
      for (auto* const device : devices_) device->ledger.left_out.add(1);
      reads_.swapWasGivenUp(clock_.realtimeUsec());
      return false;
    }
    std::this_thread::sleep_for(support::Mutex::kPause);
  }
  reads_.passHasEnded();
  return true;
}

// Takes the swap that the thread has made, or makes it between two passes.
bool Sampler::takeSwap() {
  if (hand_over_ != HandOver::done) {
    if (!mutex_.tryLock()) return false;
    if (hand_over_ != HandOver::done) swapHalves();
    hand_over_ = HandOver::none;
    mutex_.unlock();
  }
  hand_over_ = HandOver::none;
  return true;
}

// Makes the swap that waits for the end of the pass.
void Sampler::handOver() {
  swapHalves();
  hand_over_ = HandOver::done;
}

void Sampler::swapHalves() {
  for (auto* const device : devices_) {
    const auto& filling = device->buffers.filling();
    device->ledger.most_used_bytes.raiseTo(filling.usedBytes());
    if (filling.device->num_events > 0)
      device->ledger.last_good_usec.set(filling.device->timestamps.back());
    device->ledger.discarded.add(unreadSamples(*device));
    device->buffers.swap();
  }
}

}  // namespace tev::events::multipath
