// The ledger: the outcome of every sample that was due.
#pragma once

#include <atomic>
#include <cstdint>
#include <string_view>

#include "collector/published.h"
#include "tev/event_provider.h"

namespace tev::events::multipath {

// A number that one thread writes and any thread reads. Its order relative to other numbers is not
// defined.
class SharedNumber {
 public:
  SharedNumber() = default;
  // Copies are made only while no other thread uses the original.
  SharedNumber(const SharedNumber& other) : value_(other.get()) {}
  SharedNumber& operator=(const SharedNumber& other) {
    set(other.get());
    return *this;
  }

  void set(std::uint64_t value) { value_.store(value, std::memory_order_relaxed); }
  void add(std::uint64_t amount) { set(get() + amount); }
  void raiseTo(std::uint64_t value) {
    if (value > get()) set(value);
  }
  std::uint64_t get() const { return value_.load(std::memory_order_relaxed); }

 private:
  std::atomic<std::uint64_t> value_{0};
};

struct Failure {
  std::uint64_t at_usec = 0;  // since the Unix epoch; 0: never
  char text[TEV_MULTIPATH_FAILURE_SIZE] = "";
};

// The samples of one device. The sampler's mutex is held for each change, by a pass or by a swap,
// but for `left_out`.
struct DeviceLedger {
  // Written by each pass.
  SharedNumber delivered;
  SharedNumber buffer_full;
  SharedNumber read_refused;
  SharedNumber nothing_filled;
  SharedNumber short_reads;
  // Written by a swap.
  SharedNumber last_good_usec;
  SharedNumber discarded;
  SharedNumber most_used_bytes;
  // Written by a swap that did not get the mutex.
  SharedNumber left_out;

  // Allocates nothing. `what` stands before the text.
  void noteFailure(std::uint64_t at_usec, std::string_view text, std::string_view what = {});
  Failure lastFailure() const { return last_failure_.read(); }

 private:
  Published<Failure> last_failure_;
};

// The passes of one sampling thread, which are due for all of its devices.
struct PassLedger {
  SharedNumber overrun_passes;
  SharedNumber late_wakeups;
  SharedNumber missed_by_overrun;
  SharedNumber missed_by_late_wakeup;
};

// The record of a device. `buffer_bytes` is the size of both halves of its buffers.
tev_multipath_ledger_t record(const DeviceLedger& device, const PassLedger& passes,
                              std::uint64_t buffer_bytes);

// Adds a device's record to that of all devices: adds the counts and keeps the latest times.
void add(tev_multipath_ledger_t& total, const tev_multipath_ledger_t& device);

}  // namespace tev::events::multipath
