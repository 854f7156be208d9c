// The sampling thread, and the hand-off of what it has sampled.

#include <pthread.h>
#include <signal.h>
#include <sys/prctl.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#include "collector/collector.h"
#include "src/support/guard.h"
#include "src/support/log_throttle.h"
#include "tev/logger.h"

namespace tev::events::multipath {
namespace {

// Process-wide: one warning of each kind in ten seconds, whichever device and collector it is
// about.
support::LogThrottle failed_read_throttle;
support::LogThrottle odd_count_throttle;

// A thread starts with its creator's mask: the host's signals are not for the sampling thread.
class AllSignalsBlocked {
 public:
  AllSignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  ~AllSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  AllSignalsBlocked(const AllSignalsBlocked&) = delete;
  AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;

 private:
  sigset_t before_{};
};

// The counts have one writer, the sampling thread, and readers that need no order.
void increment(std::uint64_t& count) {
  const std::atomic_ref<std::uint64_t> shared(count);
  shared.store(shared.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
}

std::uint64_t current(const std::uint64_t& count) {
  return __atomic_load_n(&count, __ATOMIC_RELAXED);
}

// Has the cache fetch what the look at the room of the next device would wait for.
void expect(const Collector::DevCtx::Half& half) {
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

}  // namespace

bool Collector::start() {
  if (running_.exchange(true)) return true;
  try {
    makeRoomForValues();
    const AllSignalsBlocked blocked;
    sampling_thread_ = std::thread([this] {
      support::guarded(
          "sampling thread", 0,
          [this] {
            pthread_setname_np(pthread_self(), "tev-multipath");
            prctl(PR_SET_TIMERSLACK, 1);  // nanoseconds
            collectData();
            return 0;
          },
          "[multipath] ");
    });
  } catch (...) {
    running_ = false;
    throw;
  }
  return true;
}

bool Collector::stop() {
  if (!running_.exchange(false)) return true;
  // The thread looks at the flag with the mutex held and then waits: whoever has had the mutex
  // since the flag changed knows that it will be woken.
  { const std::scoped_lock lock(mutex_); }
  wake_.notify_all();
  swapped_.notify_all();
  if (sampling_thread_.joinable()) sampling_thread_.join();
  return true;
}

void Collector::collectData() {
  if (devices_.empty()) {
    TEV_LOG_DEBUG("[multipath] collectData called with no devices");
    return;
  }
  // The mutex is held for whole passes and released while waiting between them.
  std::unique_lock lock(mutex_);
  auto due = clock_.now();
  while (running_) {
    samplePass(values_.get());
    waitForNextPass(due, lock);
  }
}

// For whatever any device may fill in.
void Collector::makeRoomForValues() {
  std::size_t size = 1;
  for (const auto& dev : devices_) {
    size = std::max<std::size_t>(size, dev.slot_info.num_counters);
    const vuna_devinfo* const devinfo = api_.vuna_dev_as_devinfo(dev.device);
    if (!devinfo) {
      TEV_LOG_WARNING("[multipath] Could not get device info for device %s", dev.name.c_str());
      continue;
    }
    std::uint32_t max_num = 0;
    if (const auto status = api_.vuna_telemetry_mp_cap_get_max_num_counters(devinfo, &max_num)) {
      TEV_LOG_WARNING("[multipath] Could not get max num counters for device %s: %s",
                      dev.name.c_str(), api_.errorName(status));
      continue;
    }
    size = std::max<std::size_t>(size, max_num);
  }
  values_.reset(static_cast<std::uint32_t*>(std::calloc(size, sizeof(std::uint32_t))));
  if (!values_) throw std::bad_alloc();
}

void Collector::samplePass(std::uint32_t* values) {
  for (std::size_t i = 0; i < devices_.size(); ++i) {
    if (i + 1 < devices_.size()) expect(devices_[i + 1].filling());
    sampleDevice(devices_[i], values);
  }
}

void Collector::sampleDevice(DevCtx& dev, std::uint32_t* values) {
  const auto& slot = dev.slot_info;
  const auto& half = dev.filling();
  if (!hasRoom(*half.device, dev.device_layout) || !hasRoom(*half.plane, dev.plane_layout)) {
    increment(dev.counts.taken);
    increment(dev.counts.lost);
    return;
  }

  const auto timestamp = clock_.realtimeUsec();
  const auto read = configuration_.clear_sampled_counters
                        ? api_.vuna_telemetry_mp_get_and_clear_counters
                        : api_.vuna_telemetry_mp_get_counters;
  // What the read does not fill is zero, and not what another device left behind.
  const auto wanted = slot.counters.size();
  std::fill_n(values, wanted, 0);
  std::uint32_t filled = 0;
  if (const auto status = read(dev.context, slot.slot, &filled, values)) {
    increment(dev.counts.failed);
    if (tev_log_enabled(TEV_LEVEL_WARNING) && failed_read_throttle.admit(timestamp))
      TEV_LOG_WARNING("[multipath] Could not get counters for device %s: %s", dev.name.c_str(),
                      api_.errorName(status));
    return;
  }
  if (filled == 0) {
    increment(dev.counts.failed);
    return;
  }
  if (filled != slot.num_counters) {
    if (tev_log_enabled(TEV_LEVEL_WARNING) && odd_count_throttle.admit(timestamp))
      TEV_LOG_WARNING("[multipath] Counters populated %u != num counters %u for device %s", filled,
                      slot.num_counters, dev.name.c_str());
    if (filled < wanted) std::fill(values + filled, values + wanted, 0);
  }
  write(*half.device, dev.device_layout, timestamp, values);
  write(*half.plane, dev.plane_layout, timestamp, values);
  increment(dev.counts.taken);
}

// Returns, with the lock held, when the next pass is due or sampling is to end. A pass is due one
// interval after the one before was; after a pass that took longer the due times start anew, so
// that nothing is caught up in a burst.
void Collector::waitForNextPass(Clock::TimePoint& due, std::unique_lock<std::mutex>& lock) {
  due = after(due, configuration_.sample_interval_usec);
  const auto now = clock_.now();
  if (due > now) {
    clock_.waitUntil(due, lock, wake_, [this] { return !running_; });
    return;
  }
  due = now;
  // Passes that follow each other at once would keep the mutex from a swap that waits for it.
  if (swaps_waiting_ > 0) {
    const auto seen = swaps_done_;
    swapped_.wait(lock, [&] { return swaps_done_ != seen || !running_; });
  }
}

void Collector::getData(std::vector<EventBuffer*>& device_buffers,
                        std::vector<EventBuffer*>& plane_buffers) {
  // Nothing may throw between the first flip and the last.
  device_buffers.reserve(device_buffers.size() + devices_.size());
  plane_buffers.reserve(plane_buffers.size() + devices_.size());
  ++swaps_waiting_;
  {
    const std::scoped_lock lock(mutex_);
    --swaps_waiting_;
    ++swaps_done_;
    for (auto& dev : devices_) {
      const auto& filled = dev.filling();
      filled.device->write_offset = 0;
      filled.plane->write_offset = 0;
      device_buffers.push_back(filled.device.get());
      plane_buffers.push_back(filled.plane.get());

      const auto& emptied = dev.handedOut();
      emptied.device->clear();
      emptied.plane->clear();
      dev.first_pair_active = !dev.first_pair_active;
    }
  }
  swapped_.notify_all();
}

tev_multipath_sample_counts_t Collector::sampleCounts(std::size_t index) const {
  const auto& counts = devices_.at(index).counts;
  return {.taken = current(counts.taken),
          .lost = current(counts.lost),
          .failed = current(counts.failed)};
}

}  // namespace tev::events::multipath
