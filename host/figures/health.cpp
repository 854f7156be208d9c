#include "host/figures/health.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace tev::host {
const char* nameOf(DeviceState state) {
  switch (state) {
    case DeviceState::waiting:
      return "waiting";
    case DeviceState::sampling:
      return "sampling";
    case DeviceState::failing:
      return "failing";
    case DeviceState::silent:
      return "silent";
  }
  return "";
}

const std::vector<MissingCause>& missingCauses() {
  static const std::vector<MissingCause> kCauses = {
      {&DeviceCounts::lost, "buffer_full", "lost, because the buffers were full"},
      {&DeviceCounts::refused, "refused", "refused by the device"},
      {&DeviceCounts::nothing_filled, "nothing_filled", "without any counter"},
      {&DeviceCounts::failed_otherwise, "failed", "failed"},
      {&DeviceCounts::missed_by_overrun, "missed_by_overrun",
       "missed, because a pass took too long"},
      {&DeviceCounts::missed_by_late_wakeup, "missed_by_late_wakeup",
       "missed, because the thread woke too late"},
      {&DeviceCounts::discarded, "discarded", "discarded before they were fetched"},
  };
  return kCauses;
}

std::uint64_t missingSamples(const DeviceCounts& counts) {
  std::uint64_t all = 0;
  for (const MissingCause& cause : missingCauses()) all += counts.*cause.count;
  return all;
}

DeviceHealth& HealthWatch::deviceNamed(const std::string& name) {
  for (DeviceHealth& one : devices_)
    if (one.counts.device == name) return one;
  seen_usec_.push_back(0);
  DeviceHealth& added = devices_.emplace_back();
  added.counts.device = name;
  return added;
}

void HealthWatch::sample(const std::string& device, std::uint64_t timestamp_usec) {
  DeviceHealth& health = deviceNamed(device);
  health.last_sample_usec = std::max(health.last_sample_usec, timestamp_usec);
}

void HealthWatch::update(const std::vector<DeviceCounts>& counts, std::uint64_t now_usec) {
  are_counted_ = !counts.empty();
  missing_.clear();
  changes_.clear();
  for (const DeviceCounts& one : counts) deviceNamed(one.device);
  if (!std::exchange(has_begun_, true)) {  // nothing was fetched yet
    last_update_usec_ = now_usec;
    for (DeviceHealth& one : devices_) one.since_usec = now_usec;
    return;
  }
  std::vector<DeviceCounts> before;
  for (const DeviceHealth& one : devices_) before.push_back(one.counts);
  for (const DeviceCounts& one : counts) {
    DeviceHealth& device = deviceNamed(one.device);
    device.counts = one;
    device.last_sample_usec = std::max(device.last_sample_usec, one.last_good_usec);
  }

  for (std::size_t i = 0; i < devices_.size(); ++i) {
    DeviceHealth& device = devices_[i];
    noteMissing(before[i], device.counts, now_usec);
    const bool delivered = device.last_sample_usec != seen_usec_[i];
    seen_usec_[i] = device.last_sample_usec;
    if (delivered) device.arrived_usec = now_usec;
    const DeviceState state = stateOf(device, before[i], delivered, now_usec);
    if (device.since_usec == 0) device.since_usec = now_usec;
    if (state == device.state) continue;
    const bool has_ceased = state != DeviceState::sampling && device.arrived_usec > 0;
    const std::uint64_t since = has_ceased ? device.arrived_usec : now_usec;
    changes_.push_back({i, device.state, since - std::min(since, device.since_usec)});
    device.state = state;
    device.since_usec = since;
  }
  last_update_usec_ = now_usec;
}

void HealthWatch::end() {
  for (std::size_t i = 0; i < devices_.size(); ++i)
    if (devices_[i].state == DeviceState::waiting)
      changes_.push_back({i, DeviceState::waiting,
                          last_update_usec_ - std::min(last_update_usec_, devices_[i].since_usec)});
}

void HealthWatch::noteMissing(const DeviceCounts& before, const DeviceCounts& now,
                              std::uint64_t now_usec) {
  for (const MissingCause& cause : missingCauses()) {
    const std::uint64_t count = now.*cause.count;
    if (count <= before.*cause.count) continue;
    const bool failure =
        cause.count == &DeviceCounts::refused || cause.count == &DeviceCounts::failed_otherwise;
    missing_.push_back({now.device, cause.name, last_update_usec_, now_usec,
                        count - before.*cause.count, failure ? now.last_failure : ""});
  }
}

DeviceState HealthWatch::stateOf(const DeviceHealth& device, const DeviceCounts& before,
                                 bool delivered, std::uint64_t now_usec) const {
  if (delivered) return DeviceState::sampling;
  if (device.counts.failed > before.failed) return DeviceState::failing;
  if (device.state != DeviceState::sampling) return device.state;
  return device.ageUsec(now_usec) > patience_usec_ ? DeviceState::silent : DeviceState::sampling;
}

bool isNews(const StateChange& change, const HealthWatch& health) {
  return change.before != DeviceState::waiting ||
         health.devices()[change.device].state != DeviceState::sampling;
}

std::string describe(const StateChange& change, const DeviceHealth& device) {
  const std::string& name = device.counts.device;
  const auto lasted = static_cast<double>(change.lasted_usec) / 1e6;
  switch (device.state) {
    case DeviceState::failing:
      return fmt::format("{}: its reads fail{}{}", name,
                         device.counts.last_failure.empty() ? "" : ": ",
                         device.counts.last_failure);
    case DeviceState::silent:
      return fmt::format("{}: no samples any more", name);
    case DeviceState::sampling:
      if (change.before == DeviceState::waiting) return {};
      return fmt::format("{}: delivers samples again, after {:.1f} s", name, lasted);
    case DeviceState::waiting:
      return fmt::format("{}: no sample came", name);
  }
  return {};
}

std::string describeMissing(const DeviceCounts& counts) {
  std::string text;
  const auto add = [&](const std::string& part) { text += (text.empty() ? "" : "; ") + part; };
  for (const MissingCause& cause : missingCauses())
    if (counts.*cause.count > 0) add(fmt::format("{} {}", counts.*cause.count, cause.text));
  if (counts.undelivered > 0)
    add(fmt::format("{} undelivered, because the message bus did not take them",
                    counts.undelivered));
  if (counts.left_out > 0)
    add(fmt::format("{} times left out of a batch, because its thread was still reading",
                    counts.left_out));
  if (!counts.last_failure.empty()) add("last failure: " + counts.last_failure);
  return text;
}

std::string describe(const DeviceHealth& device, std::uint64_t now_usec) {
  std::string text;
  if (device.state != DeviceState::sampling) {
    const std::uint64_t lasted = now_usec - std::min(now_usec, device.since_usec);
    text =
        fmt::format("{} for {:.1f} s; ", nameOf(device.state), static_cast<double>(lasted) / 1e6);
    text += device.last_sample_usec == 0
                ? "no sample yet"
                : fmt::format("last sample {:.1f} s ago",
                              static_cast<double>(device.ageUsec(now_usec)) / 1e6);
  }
  const std::string missing = describeMissing(device.counts);
  if (!text.empty() && !missing.empty()) text += "; ";
  return text + missing;
}

}  // namespace tev::host
