#include "host/commands/summary.h"

#include <fmt/format.h>
#include <sys/resource.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <optional>

#include "host/figures/fast_counters.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

constexpr double kTellingSeconds = 0.5;

struct DeviceRow {
  std::string device;
  std::uint64_t samples = 0;
  std::optional<double> per_second;
  const DeviceHealth* health = nullptr;
};

double toSeconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

std::optional<double> perSecond(const Delivery::SeriesCount& series) {
  if (series.arrived < 2 || series.last_usec <= series.first_usec) return std::nullopt;
  return static_cast<double>(series.arrived - 1) * 1e6 /
         static_cast<double>(series.last_usec - series.first_usec);
}

DeviceRow& rowOf(std::vector<DeviceRow>& rows, const std::string& device) {
  auto row = std::ranges::find(rows, device, &DeviceRow::device);
  if (row == rows.end()) row = rows.insert(row, DeviceRow{device, 0, {}, nullptr});
  return *row;
}

std::vector<DeviceRow> deviceRows(const Delivery& delivery) {
  std::vector<DeviceRow> rows;
  for (const DeviceHealth& one : delivery.health().devices())
    rowOf(rows, one.counts.device).health = &one;
  // A sample of a device is one event of each of its series.
  for (const Delivery::SeriesCount& one : delivery.series()) {
    if (!one.isTaken()) continue;
    DeviceRow& row = rowOf(rows, one.series->device);
    row.samples = std::max(row.samples, one.written);
    if (!row.per_second) row.per_second = perSecond(one);
  }
  return rows;
}

void appendDevices(std::string& out, const std::vector<DeviceRow>& rows, bool counted) {
  std::size_t width = sizeof "device" - 1;
  for (const DeviceRow& row : rows) width = std::max(width, displayWidth(row.device));
  constexpr auto kRow = "  {}  {:>12}  {:>12}  {:>10}  {:>10}  {:>10}\n";
  fmt::format_to(std::back_inserter(out), kRow, padRight("device", width), "samples", "per second",
                 "lost", "failed", "missed");
  for (const DeviceRow& row : rows) {
    const DeviceCounts counts = row.health ? row.health->counts : DeviceCounts();
    const auto count = [&](std::uint64_t number) {
      return counted ? fmt::format("{}", number) : std::string("-");
    };
    fmt::format_to(std::back_inserter(out), kRow, padRight(row.device, width), row.samples,
                   row.per_second ? fmt::format("{:.1f}", *row.per_second) : "-",
                   count(counts.lost), count(counts.failed),
                   count(counts.missed_by_overrun + counts.missed_by_late_wakeup));
  }
}

// One line per device that does not deliver or that misses samples.
void appendTroubles(std::string& out, const std::vector<DeviceRow>& rows, std::uint64_t now_usec) {
  for (const DeviceRow& row : rows) {
    if (!row.health) continue;
    if (const std::string text = describe(*row.health, now_usec); !text.empty())
      fmt::format_to(std::back_inserter(out), "  {}: {}\n", row.device, text);
  }
}

// One line per counter that moves too fast, and one per field with unknown steps.
void appendFigures(std::string& out, const Figures& figures) {
  for (const FastCounter& counter : fastCounters(figures))
    fmt::format_to(std::back_inserter(out), "  {}\n", describe(counter));
  std::map<std::string, std::uint64_t> unknown;
  for (const SeriesFigures& one : figures.all()) {
    if (!one.series) continue;
    const auto columns = figures.columns(*one.series->type);
    for (std::size_t i = 0; i < one.tracks.size(); ++i)
      if (one.tracks[i].counts() && one.tracks[i].unknownSteps() > 0)
        unknown[asPrintable(columns[i]->name)] += one.tracks[i].unknownSteps();
  }
  for (const auto& [name, steps] : unknown)
    fmt::format_to(std::back_inserter(out),
                   "  {}: {} unknown step{}, so its totals are lower bounds\n", name, steps,
                   steps == 1 ? "" : "s");
}

void appendTypes(std::string& out, const Delivery& delivery, const Projection& projection) {
  const auto& types = projection.schema().types();
  std::size_t width = sizeof "type" - 1;
  for (const TypeView& type : types)
    if (projection.takes(type)) width = std::max(width, displayWidth(asPrintable(type.name)));
  constexpr auto kRow = "  {}  {:>12}  {:>14}\n";
  fmt::format_to(std::back_inserter(out), kRow, padRight("type", width), "events", "bytes");
  for (const TypeView& type : types) {
    if (!projection.takes(type)) continue;
    const Delivery::TypeTotals& totals = delivery.totals()[type.number];
    fmt::format_to(std::back_inserter(out), kRow, padRight(asPrintable(type.name), width),
                   totals.events, totals.bytes);
  }
}

}  // namespace

CpuTime cpuTime() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return {toSeconds(usage.ru_utime), toSeconds(usage.ru_stime)};
}

std::string summarize(double elapsed_seconds, const CpuTime& cpu, const Delivery& delivery,
                      const Figures& figures) {
  const double busy = cpu.user_seconds + cpu.system_seconds;
  std::string out =
      fmt::format("tev-host: {:.2f} s, CPU time {:.3f} s (user {:.3f}, system {:.3f})",
                  elapsed_seconds, busy, cpu.user_seconds, cpu.system_seconds);
  // The CPU time includes the set-up, so the share of a core has no meaning in a short run.
  if (elapsed_seconds >= kTellingSeconds)
    fmt::format_to(std::back_inserter(out), ", {:.1f} % of a core", 100 * busy / elapsed_seconds);
  out += '\n';
  const auto rows = deviceRows(delivery);
  appendDevices(out, rows, delivery.health().areCounted());
  appendTroubles(out, rows, delivery.health().lastUpdateUsec());
  appendFigures(out, figures);
  appendTypes(out, delivery, figures.projection());
  return out;
}

}  // namespace tev::host
