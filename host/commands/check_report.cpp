#include "host/commands/check_report.h"

#include <algorithm>
#include <set>

namespace tev::host {

std::size_t CheckReport::numSampled() const {
  if (!devices) return 0;
  return static_cast<std::size_t>(
      std::ranges::count_if(*devices, [](const auto& one) { return one.info.is_sampled; }));
}

SampleSize CheckReport::sample() const {
  SampleSize sum;
  if (devices)
    for (const CheckedDevice& device : *devices) {
      sum.events += device.sample.events;
      sum.bytes += device.sample.bytes;
    }
  return sum;
}

std::uint64_t CheckReport::memoryBytes() const {
  std::uint64_t sum = 0;
  if (devices)
    for (const CheckedDevice& device : *devices) sum += device.info.memory_bytes;
  return sum;
}

std::optional<Seconds> CheckReport::interval() const {
  if (interval_usec.value_or(0) == 0) return std::nullopt;
  return Seconds(static_cast<double>(*interval_usec) / 1e6);
}

std::vector<std::size_t> threadNumbers(const CheckReport& report) {
  if (!report.measurement || !report.measurement->pass) return {};
  const std::size_t most = report.measurement->pass->reads.size();
  if (most == 0) return {};
  std::set<std::size_t> numbers{most};
  for (std::size_t number = 1; number < most; number *= 2) numbers.insert(number);
  if (report.threads) numbers.insert(std::min<std::size_t>(*report.threads, most));
  return {numbers.begin(), numbers.end()};
}

}  // namespace tev::host
