#include "host/summary.h"

#include <fmt/format.h>
#include <sys/resource.h>

#include <algorithm>
#include <iterator>

#include "host/text.h"

namespace tev::host {
namespace {

constexpr double kTellingSeconds = 0.5;

struct DeviceRow {
  std::string device;
  std::uint64_t samples = 0;
  std::optional<double> per_second;
  std::optional<tev_multipath_sample_counts_t> counts;
};

double toSeconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

std::optional<double> perSecond(const Series& series) {
  if (series.arrived < 2 || series.last_usec <= series.first_usec) return std::nullopt;
  return static_cast<double>(series.arrived - 1) * 1e6 /
         static_cast<double>(series.last_usec - series.first_usec);
}

DeviceRow& rowOf(std::vector<DeviceRow>& rows, const std::string& device) {
  auto row = std::ranges::find(rows, device, &DeviceRow::device);
  if (row == rows.end()) row = rows.insert(row, DeviceRow{device, 0, {}, {}});
  return *row;
}

std::vector<DeviceRow> deviceRows(const Delivery& delivery,
                                  const std::optional<std::vector<DeviceCounts>>& counts) {
  std::vector<DeviceRow> rows;
  if (counts)
    for (const DeviceCounts& one : *counts)
      if (delivery.devices().passes(one.device)) rowOf(rows, one.device).counts = one.counts;
  // A sample of a device is one event of each of its series.
  for (const Series& series : delivery.series().all()) {
    if (!series.wanted) continue;
    DeviceRow& row = rowOf(rows, series.device);
    row.samples = std::max(row.samples, series.written);
    if (!row.per_second) row.per_second = perSecond(series);
  }
  return rows;
}

std::string countText(const std::optional<tev_multipath_sample_counts_t>& counts,
                      std::uint64_t tev_multipath_sample_counts_t::*count) {
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
                   countText(row.counts, &tev_multipath_sample_counts_t::lost),
                   countText(row.counts, &tev_multipath_sample_counts_t::failed));
}

void appendTypes(std::string& out, const Delivery& delivery) {
  const auto& types = delivery.schema().types();
  std::size_t width = sizeof "type" - 1;
  for (const TypeView& type : types)
    if (type.wanted) width = std::max(width, displayWidth(asPrintable(type.name)));
  constexpr auto kRow = "  {}  {:>12}  {:>14}\n";
  fmt::format_to(std::back_inserter(out), kRow, padRight("type", width), "events", "bytes");
  for (const TypeView& type : types) {
    if (!type.wanted) continue;
    const TypeTotals& totals = delivery.totals()[type.number];
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
                      const std::optional<std::vector<DeviceCounts>>& counts) {
  const double busy = cpu.user_seconds + cpu.system_seconds;
  std::string out =
      fmt::format("tev-host: {:.2f} s, CPU time {:.3f} s (user {:.3f}, system {:.3f})",
                  elapsed_seconds, busy, cpu.user_seconds, cpu.system_seconds);
  // The time also holds the setting up, which would make nonsense of the share of a short run.
  if (elapsed_seconds >= kTellingSeconds)
    fmt::format_to(std::back_inserter(out), ", {:.1f} % of a core", 100 * busy / elapsed_seconds);
  out += '\n';
  appendDevices(out, deviceRows(delivery, counts));
  appendTypes(out, delivery);
  return out;
}

}  // namespace tev::host
