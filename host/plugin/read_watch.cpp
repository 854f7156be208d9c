#include "host/plugin/read_watch.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/support/text.h"

namespace tev::host {

void ReadWatch::batchEnded(const std::vector<DeviceReads>& reads) {
  const auto now = Clock::now();
  devices_.resize(reads.size());
  for (std::size_t i = 0; i < reads.size(); ++i) {
    Device& device = devices_[i];
    const bool is_left_out = reads[i].left_out > device.reads.left_out;
    if (is_left_out && !device.is_left_out) device.since = now;
    device.reads = reads[i];
    device.is_left_out = is_left_out;
  }
}

std::string ReadWatch::leftOut() const {
  std::vector<std::string> names;
  std::vector<DeviceReads> left_out;
  auto since = Clock::time_point::max();
  for (const Device& device : devices_) {
    if (!device.is_left_out) continue;
    names.push_back(device.reads.device);
    left_out.push_back(device.reads);
    since = std::min(since, device.since);
  }
  if (names.empty()) return "";
  const std::chrono::duration<double> lasted = Clock::now() - since;
  std::string text =
      fmt::format("{}: no samples for {:.0f} s, because a device read has not returned",
                  commaSeparated(names), lasted.count());
  return left_out.size() == 1 ? text : text + "; " + passInProgress(left_out);
}

std::string ReadWatch::passInProgress(const std::vector<DeviceReads>& reads) {
  if (reads.empty()) return "";
  if (reads.size() == 1) return "its only device is " + asPrintable(reads[0].device);
  std::uint64_t most = 0;
  for (const DeviceReads& one : reads) most = std::max(most, one.due);
  std::vector<std::string> done;
  std::vector<std::string> missing;
  for (const DeviceReads& one : reads) (one.due == most ? done : missing).push_back(one.device);
  if (missing.empty())
    return "it has not read any device of the next pass, and the first is " +
           asPrintable(reads[0].device);
  return fmt::format("of the last pass, it has read {}, but not {}", commaSeparated(done),
                     commaSeparated(missing));
}

}  // namespace tev::host
