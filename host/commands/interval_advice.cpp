#include "host/commands/interval_advice.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "host/commands/known_options.h"
#include "host/support/duration_text.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

constexpr std::size_t kMostNames = 6;

// The counters of one device that the interval does not follow.
struct Finding {
  std::string device;
  double link_gbits = 0;
  std::vector<std::string> counters;
  Seconds needed{};
};

Finding findingOf(const DeviceInfo& device, const Projection& projection, Seconds interval,
                  double link_gbits) {
  Finding finding{device.name, link_gbits, {}, interval};
  for (const TypeView* const type : typesOf(device, projection.schema()))
    for (const Column& column : projection.columns(*type)) {
      if (followsByteCounters(interval, link_gbits, column)) continue;
      finding.needed =
          std::min(finding.needed, longestSafeInterval(bitsOf(column), bytesPerSecond(link_gbits)));
      if (std::ranges::find(finding.counters, column.name) == finding.counters.end())
        finding.counters.push_back(column.name);
    }
  return finding;
}

std::string namesText(std::vector<std::string> names) {
  if (names.size() <= kMostNames) return commaSeparated(names);
  const std::size_t more = names.size() - kMostNames;
  names.resize(kMostNames);
  return fmt::format("{} and {} more", commaSeparated(names), more);
}

}  // namespace

std::optional<Seconds> sampleInterval(const GivenOptions& given, const OptionTable& table) {
  const auto usec = numberOption(given, table, kSampleIntervalKey);
  if (!usec || *usec == 0) return std::nullopt;
  return Seconds(static_cast<double>(*usec) / 1e6);
}

std::string intervalAdvice(const std::vector<DeviceInfo>& devices, const Projection& projection,
                           Seconds interval, std::optional<double> link_gbits) {
  Finding worst;
  std::size_t affected = 0;
  for (const DeviceInfo& device : devices) {
    if (!device.is_sampled || !projection.devices().passes(device.name)) continue;
    const auto speed = linkSpeedOf(device, link_gbits);
    if (!speed) continue;
    Finding finding = findingOf(device, projection, interval, *speed);
    if (finding.counters.empty()) continue;
    ++affected;
    if (affected == 1 || finding.needed < worst.needed) worst = std::move(finding);
  }
  if (affected == 0) return {};
  const std::string others =
      affected == 1 ? ""
                    : fmt::format(" and {} more device{}", affected - 1, affected > 2 ? "s" : "");
  const double usec = std::floor(worst.needed.count() * 1e6);
  const std::string remedy =
      usec < 1 ? "no interval is short enough"
               : fmt::format("choose {}={:.0f} or less", kSampleIntervalKey, usec);
  return fmt::format(
      "{}{}: at {:g} Gbit/s, {} {} an interval of at most {}, and it is {}: the rates are not "
      "certain; {}",
      worst.device, others, worst.link_gbits, namesText(worst.counters),
      worst.counters.size() == 1 ? "needs" : "need", durationText(worst.needed),
      durationText(interval), remedy);
}

}  // namespace tev::host
