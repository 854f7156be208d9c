#include "host/commands/summary.h"

#include <fmt/format.h>
#include <sys/resource.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "host/support/text.h"

namespace tev::host {
namespace {

constexpr double kTellingSeconds = 0.5;

struct DeviceRow {
  std::string device;
  std::uint64_t samples = 0;
  std::optional<double> per_second;
  std::optional<DeviceCounts> counts;
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
  if (row == rows.end()) row = rows.insert(row, DeviceRow{device, 0, {}, {}});
  return *row;
}

std::vector<DeviceRow> deviceRows(const Delivery& delivery, const Projection& projection,
                                  const std::optional<std::vector<DeviceCounts>>& counts) {
  std::vector<DeviceRow> rows;
  if (counts)
    for (const DeviceCounts& one : *counts)
      if (projection.devices().passes(one.device)) rowOf(rows, one.device).counts = one;
  // A sample of a device is one event of each of its series.
  for (const Delivery::SeriesCount& one : delivery.series()) {
    if (!one.isTaken()) continue;
    DeviceRow& row = rowOf(rows, one.series->device);
    row.samples = std::max(row.samples, one.written);
    if (!row.per_second) row.per_second = perSecond(one);
  }
  return rows;
}

std::string countText(const std::optional<DeviceCounts>& counts,
                      std::uint64_t DeviceCounts::*count) {
  return counts ? fmt::format("{}", (*counts).*count) : "-";
}

void appendDevices(std::string& out, const std::vector<DeviceRow>& rows) {
  std::size_t width = sizeof "device" - 1;
  for (const DeviceRow& row : rows) width = std::max(width, displayWidth(row.device));
  constexpr auto kRow = "  {}  {:>12}  {:>12}  {:>10}  {:>10}\n";
  fmt::format_to(std::back_inserter(out), kRow, padRight("device", width), "samples", "per second",
                 "lost", "failed");
  for (const DeviceRow& row : rows)
    fmt::format_to(std::back_inserter(out), kRow, padRight(row.device, width), row.samples,
                   row.per_second ? fmt::format("{:.1f}", *row.per_second) : "-",
                   countText(row.counts, &DeviceCounts::lost),
                   countText(row.counts, &DeviceCounts::failed));
}

// One line per device with missing samples: their numbers and the reasons.
void appendTroubles(std::string& out, const std::vector<DeviceRow>& rows) {
  constexpr std::pair<std::uint64_t DeviceCounts::*, const char*> kTroubles[] = {
      {&DeviceCounts::lost, "lost, because the buffers were full"},
      {&DeviceCounts::refused, "refused by the device"},
      {&DeviceCounts::nothing_filled, "without any counter"},
      {&DeviceCounts::missed_by_overrun, "missed, because a pass took too long"},
      {&DeviceCounts::missed_by_late_wakeup, "missed, because the thread woke too late"},
  };
  for (const DeviceRow& row : rows) {
    if (!row.counts) continue;
    std::string line;
    const auto add = [&](const std::string& text) { line += (line.empty() ? "" : "; ") + text; };
    for (const auto& [count, text] : kTroubles)
      if ((*row.counts).*count > 0) add(fmt::format("{} {}", (*row.counts).*count, text));
    if (!row.counts->last_failure.empty()) add("last failure: " + row.counts->last_failure);
    if (!line.empty()) fmt::format_to(std::back_inserter(out), "  {}: {}\n", row.device, line);
  }
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
                      const Projection& projection,
                      const std::optional<std::vector<DeviceCounts>>& counts) {
  const double busy = cpu.user_seconds + cpu.system_seconds;
  std::string out =
      fmt::format("tev-host: {:.2f} s, CPU time {:.3f} s (user {:.3f}, system {:.3f})",
                  elapsed_seconds, busy, cpu.user_seconds, cpu.system_seconds);
  // The CPU time includes the set-up, so the share of a core has no meaning in a short run.
  if (elapsed_seconds >= kTellingSeconds)
    fmt::format_to(std::back_inserter(out), ", {:.1f} % of a core", 100 * busy / elapsed_seconds);
  out += '\n';
  const auto rows = deviceRows(delivery, projection, counts);
  appendDevices(out, rows);
  appendTroubles(out, rows);
  appendTypes(out, delivery, projection);
  return out;
}

}  // namespace tev::host
