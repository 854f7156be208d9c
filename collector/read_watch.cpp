#include "collector/read_watch.h"

#include <utility>

#include "tev/logger.h"

namespace tev::events::multipath {

std::optional<ReadWatch::Read> ReadWatch::current() const {
  const auto step = step_.load(std::memory_order_acquire);
  const auto* const device = device_.load(std::memory_order_acquire);
  // The device belongs to this step if the step has not changed.
  if (step % 2 == 0 || step != step_.load(std::memory_order_relaxed)) return {};
  return Read{device, step, std::chrono::steady_clock::now(), false};
}

const SampledDevice* ReadWatch::reading() const {
  const auto read = current();
  return read ? read->device : nullptr;
}

void ReadWatch::swapBegins() {
  at_begin_ = current();
}

bool ReadWatch::isStillHeldUp() const {
  return at_begin_ && hung_ && at_begin_->step == hung_->step;
}

void ReadWatch::swapWasGivenUp(std::uint64_t now_usec) {
  const auto now = current();
  if (!now || (hung_ && hung_->step != now->step)) passHasEnded();
  // Otherwise the pass consists of several reads, none of which has lasted for the whole swap.
  if (!now || !at_begin_ || now->step != at_begin_->step) return;

  if (!hung_) hung_ = at_begin_;
  if (hung_->logged || !tev_log_enabled(TEV_LEVEL_WARNING)) return;
  const bool is_another = std::exchange(last_named_, hung_->device) != hung_->device;
  if (!throttle_.admit(now_usec) && !is_another) return;
  hung_->logged = true;
  const auto lasted =
      std::chrono::duration_cast<std::chrono::milliseconds>(now->seen - hung_->seen);
  TEV_LOG_WARNING(
      "[multipath] Device %s has been in a read for %ld ms: the devices of its sampling thread are "
      "left out of the batches until it ends",
      hung_->device->name.c_str(), static_cast<long>(lasted.count()));
}

void ReadWatch::passHasEnded() {
  if (hung_ && hung_->logged)
    TEV_LOG_WARNING("[multipath] Device %s answers again", hung_->device->name.c_str());
  hung_.reset();
}

void ReadWatch::forget() {
  hung_.reset();
  last_named_ = nullptr;
}

}  // namespace tev::events::multipath
