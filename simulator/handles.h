// What stands behind the SDK's opaque handles.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "simulator/scenario.h"

// What a device's user has last been told about sizes. Nothing is ever written beyond it, whatever
// the scenario makes the device claim; before the first question the scenario's own numbers hold.
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

// Unowned handles, here and below, are those that a call handed out although it was reported to
// have failed: nobody needs to give them back.
struct vuna_dev {
  vuna_dev(const simulator::Device& device, bool is_unowned) : info(device), unowned(is_unowned) {}
  vuna_devinfo info;
  const bool unowned;
};

namespace simulator {

// The reads of one slot in one context: where the values come from and what has been cleared.
class SlotReader {
 public:
  explicit SlotReader(const Slot& slot);

  // Fills at most `room` values. The count is what the slot claims to have filled.
  vuna_status read(const Moment& moment, bool clear, std::uint32_t room, std::uint32_t* count,
                   std::uint32_t* values);

 private:
  const Slot& slot_;
  std::unique_ptr<CounterSource> source_;
  std::vector<std::uint32_t> now_;
  std::vector<std::uint32_t> cleared_at_;  // what each counter stood at when it was last cleared
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
  // False when it was in that state already. Every start is a new beginning of time and counters.
  // An unowned start need not be stopped.
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
