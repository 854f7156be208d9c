#include "simulator/handles.h"

#include <algorithm>
#include <ctime>
#include <utility>

#include "simulator/common_library.h"

namespace {

std::uint64_t monotonicUsec() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000 +
         static_cast<std::uint64_t>(now.tv_nsec) / 1'000;
}

std::uint32_t atMostAllCounters(std::uint32_t number) {
  return std::min<std::uint32_t>(number, simulator::kMaxCounters);
}

std::uint32_t mostDeclared(const simulator::Device& device) {
  std::uint32_t most = 0;
  for (const simulator::Slot& slot : device.slots) most = std::max(most, slot.declared_counters);
  return atMostAllCounters(most);
}

}  // namespace

ToldSizes::ToldSizes(const simulator::Device& device)
    : algo_info_len(device.max_algo_info_len),
      counter_info_len(device.max_counter_info_len),
      max_num_counters(atMostAllCounters(device.max_num_counters)),
      declared_counters(mostDeclared(device)) {}

namespace simulator {

SlotReader::SlotReader(const Slot& slot)
    : slot_(slot),
      source_(slot.make_source ? slot.make_source() : nullptr),
      now_(slot.counters.size()),
      cleared_at_(slot.counters.size()) {}

vuna_status SlotReader::read(const Moment& moment, bool clear, std::uint32_t room,
                             std::uint32_t* count, std::uint32_t* values) {
  if (source_) {
    const vuna_status status = source_->read(moment, now_.data());
    if (status != kVunaSuccess) return status;
  }
  const std::size_t filled =
      std::min({now_.size(), std::size_t{slot_.filled_counters}, std::size_t{room}});
  for (std::size_t i = 0; i < filled; ++i) values[i] = now_[i] - cleared_at_[i];
  for (std::size_t i = 0; clear && i < filled; ++i)
    if (slot_.counters[i].clears) cleared_at_[i] = now_[i];
  *count = slot_.filled_counters;
  return kVunaSuccess;
}

}  // namespace simulator

bool vuna_telemetry_mp::started() const {
  const std::scoped_lock lock(mutex_);
  return running_ != nullptr;
}

bool vuna_telemetry_mp::mustBeStopped() const {
  const std::scoped_lock lock(mutex_);
  return running_ && !running_->unowned;
}

bool vuna_telemetry_mp::start(bool unowned_start) {
  const std::scoped_lock lock(mutex_);
  if (running_) return false;
  const std::vector<simulator::Slot>& slots = device().slots;
  auto running = std::make_unique<Running>();
  running->samples.resize(slots.size());
  running->readers.reserve(slots.size());
  for (const simulator::Slot& slot : slots) running->readers.emplace_back(slot);
  running->unowned = unowned_start;
  running->start_usec = monotonicUsec();
  running_ = std::move(running);
  return true;
}

bool vuna_telemetry_mp::stop() {
  const std::scoped_lock lock(mutex_);
  return std::exchange(running_, nullptr) != nullptr;
}

vuna_status vuna_telemetry_mp::read(std::uint32_t slot, bool clear, std::uint32_t* count,
                                    std::uint32_t* values) {
  const std::scoped_lock lock(mutex_);
  if (!running_) return simulator::kWrongState;
  std::uint64_t& sample = running_->samples[slot];
  const std::uint64_t elapsed = scenario_.clock == simulator::ClockKind::samples
                                    ? sample * scenario_.sample_step_usec
                                    : monotonicUsec() - running_->start_usec;
  const std::uint32_t room =
      std::max(told().max_num_counters.load(), told().declared_counters.load());
  const vuna_status status =
      running_->readers[slot].read({elapsed, sample}, clear, room, count, values);
  if (status == kVunaSuccess) ++sample;
  return status;
}
