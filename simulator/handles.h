// The objects behind the SDK's opaque handles.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "simulator/scenario.h"

// The sizes that were last reported to a device's user. The simulator never writes beyond them,
// also when the scenario makes the device report other sizes. Before the first query, the
// scenario's own numbers apply, and a read fills at most kMaxCounters.
struct ToldSizes {
  explicit ToldSizes(const simulator::Device& device);
  std::atomic<std::uint32_t> algo_info_len;
  std::atomic<std::uint32_t> counter_info_len;
  std::atomic<std::uint32_t> max_num_counters;
  std::atomic<std::uint32_t> declared_counters;
};

using ToldSize = std::atomic<std::uint32_t> ToldSizes::*;

struct vuna_devinfo {
  explicit vuna_devinfo(const simulator::Device& described) : device(&described), told(described) {}
  const simulator::Device* device;  // lives as long as the library is loaded
  mutable ToldSizes told;
};

// Here and below, a handle is unowned when the call that returned it reported a failure. Unowned
// handles need not be released.
struct vuna_dev {
  vuna_dev(const simulator::Device& device, bool is_unowned) : info(device), unowned(is_unowned) {}
  vuna_devinfo info;
  const bool unowned;
};

namespace simulator {

// The reads of one slot in one context: the source of the values, and the values at the last
// clearing.
class SlotReader {
 public:
  explicit SlotReader(const Slot& slot);

  // Fills at most `room` values. Returns the count that the slot reports as filled.
  vuna_status read(const Moment& moment, bool clear, std::uint32_t room, std::uint32_t* count,
                   std::uint32_t* values);

 private:
  const Slot& slot_;
  std::unique_ptr<CounterSource> source_;
  std::vector<std::uint32_t> now_;
  std::vector<std::uint32_t> cleared_at_;  // the value of each counter when it was last cleared
};

}  // namespace simulator

struct vuna_telemetry_mp {
 public:
  vuna_telemetry_mp(std::shared_ptr<vuna_dev> dev, const simulator::Scenario& scenario,
                    bool is_unowned)
      : unowned(is_unowned), dev_(std::move(dev)), scenario_(scenario) {}

  const simulator::Device& device() const { return *dev_->info.device; }
  vuna_dev* dev() const { return dev_.get(); }
  ToldSizes& told() const { return dev_->info.told; }

  bool started() const;
  // Return false when the context was already in that state. Each start resets the time and the
  // counters. An unowned start need not be stopped.
  bool start(bool unowned_start);
  bool stop();
  bool mustBeStopped() const;

  vuna_status read(std::uint32_t slot, bool clear, std::uint32_t* count, std::uint32_t* values);

  const bool unowned;

 private:
  struct Running {
    std::uint64_t start_usec;
    std::vector<std::uint64_t> samples;  // successful reads of each slot
    std::vector<simulator::SlotReader> readers;
    bool unowned;
  };

  const std::shared_ptr<vuna_dev> dev_;
  const simulator::Scenario& scenario_;
  mutable std::mutex mutex_;  // guards running_
  std::unique_ptr<Running> running_;
};
