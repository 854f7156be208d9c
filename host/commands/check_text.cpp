#include <fmt/format.h>

#include <iterator>

#include "host/commands/check_report.h"
#include "host/commands/text_table.h"
#include "host/commands/type_listing.h"
#include "host/support/duration_text.h"
#include "host/support/short_number.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

constexpr std::chrono::hours kLongInterval{24};

using Rows = std::vector<std::vector<std::string>>;

template <class... Arguments>
void append(std::string& out, fmt::format_string<Arguments...> format, Arguments&&... arguments) {
  fmt::format_to(std::back_inserter(out), format, std::forward<Arguments>(arguments)...);
}

std::string orDash(const std::string& text) {
  return text.empty() ? "-" : text;
}

std::string counted(std::uint64_t number, const char* noun) {
  return fmt::format("{} {}{}", number, noun, number == 1 ? "" : "s");
}

std::string perSecond(double number, Seconds interval) {
  return shortNumber(number / interval.count());
}

void appendOutcome(std::string& out, const CheckReport& report) {
  if (!report.works()) {
    append(out, "Would not work: {}\n", report.reason);
    for (const std::string& line : report.details) append(out, "  {}\n", line);
    return;
  }
  out += "Would work";
  if (report.devices)
    append(out, ": {} sampled, {} left out", counted(report.numSampled(), "device"),
           report.devices->size() - report.numSampled());
  out += '\n';
}

std::string intervalText(const CheckReport& report) {
  if (!report.interval_usec) return "not known";
  const auto interval = report.interval();
  return (interval ? durationText(*interval) : "no pause") + ", fetched every " +
         durationText(Seconds(static_cast<double>(report.update_msec) / 1e3));
}

void appendSummary(std::string& out, const CheckReport& report) {
  Rows rows{
      {"plug-in", fmt::format("{}{}", asPrintable(report.plugin_path),
                              report.plugin_name.empty() ? "" : " (" + report.plugin_name + ")")}};
  if (report.sdk_library) rows.push_back({"SDK library", asPrintable(*report.sdk_library)});
  if (report.works()) {
    rows.push_back({"interval", intervalText(report)});
    if (report.threads) rows.push_back({"sampling threads", std::to_string(*report.threads)});
    if (const auto interval = report.interval(); interval && report.devices) {
      const SampleSize sample = report.sample();
      rows.push_back(
          {"per second", fmt::format("samples: {}, events: {}, bytes: {}",
                                     perSecond(static_cast<double>(report.numSampled()), *interval),
                                     perSecond(static_cast<double>(sample.events), *interval),
                                     perSecond(static_cast<double>(sample.bytes), *interval))});
    }
    if (report.devices)
      rows.push_back(
          {"buffer memory", shortNumber(static_cast<double>(report.memoryBytes())) + " bytes"});
  }
  out += '\n' + textTable("ll", rows);
}

void appendWarnings(std::string& out, const CheckReport& report) {
  if (report.warnings.empty()) return;
  out += "\nWarnings\n";
  for (const std::string& warning : report.warnings) append(out, "  {}\n", warning);
}

std::string algorithmText(const DeviceInfo& device) {
  const std::string number = fmt::format("{}, version {}.{}", device.algorithm_id,
                                         device.algorithm_major, device.algorithm_minor);
  return device.algorithm.empty() ? number : fmt::format("{} ({})", device.algorithm, number);
}

void appendDevices(std::string& out, const CheckReport& report) {
  if (!report.devices) return;
  Rows sampled{
      {"device", "RDMA", "interface", "link", "slot", "counters", "buffer", "memory", "algorithm"}};
  Rows left_out{{"left out", "reason"}};
  for (const auto& [info, sample, link_gbits] : *report.devices) {
    if (!info.is_sampled) {
      left_out.push_back({orDash(info.name), orDash(info.reason)});
      continue;
    }
    std::string counters = std::to_string(info.device_counters);
    if (info.planes > 0) counters += fmt::format(" + {} x {}", info.planes, info.plane_counters);
    std::string buffer = counted(info.buffer_samples, "sample");
    if (const auto interval = report.interval())
      buffer += ", " + durationText(static_cast<double>(info.buffer_samples) * *interval);
    sampled.push_back({info.name, orDash(info.rdma_name), orDash(info.interface_name),
                       link_gbits ? fmt::format("{:g} Gbit/s", *link_gbits) : "-",
                       std::to_string(info.slot), counters, buffer,
                       shortNumber(static_cast<double>(info.memory_bytes)), algorithmText(info)});
  }
  if (sampled.size() > 1) out += '\n' + textTable("llllrllrl", sampled);
  if (left_out.size() > 1) out += '\n' + textTable("ll", left_out);
}

void appendTypes(std::string& out, const CheckReport& report) {
  if (!report.schema) return;
  out += '\n';
  for (const SchemaView::Schema& schema : report.schema->schemas())
    append(out, "{}   id {}\n", schema.name, schema.id);
  for (const TypeView& type : report.schema->types()) appendType(out, type);
}

void appendByteCounters(std::string& out, const CheckReport& report) {
  if (report.byte_counters.empty()) return;
  Rows rows{
      {"counter of bytes", "bits",
       fmt::format("link at {}, at most", durationText(report.interval().value_or(Seconds(0))))}};
  for (const ByteCounter& one : report.byte_counters)
    rows.push_back({asPrintable(one.type + "." + one.name), std::to_string(one.bits),
                    shortNumber(one.most_gbits) + " Gbit/s"});
  out += '\n' + textTable("lrr", rows);
}

void appendCounters(std::string& out, const Measurement& measurement) {
  Rows rows{{"counter", "largest step", "most in 10 ms", "longest safe interval"}};
  std::size_t still = 0;
  for (const MeasuredCounter& one : measurement.counters) {
    const std::string name = asPrintable(one.type + "." + one.name);
    if (one.decreases)
      rows.push_back({name, "decreases", "-", "-"});
    else if (one.safe_interval)
      rows.push_back(
          {name, shortNumber(static_cast<double>(one.largest_step)),
           shortNumber(one.highest_rate) + "/s",
           *one.safe_interval > kLongInterval ? "over a day" : durationText(*one.safe_interval)});
    else
      ++still;
  }
  if (rows.size() > 1) out += '\n' + textTable("lrrr", rows);
  if (still > 0) append(out, "  {} did not move\n", counted(still, "counter"));
}

void appendPass(std::string& out, const CheckReport& report) {
  const auto& pass = report.measurement->pass;
  if (!pass) {
    out += "\nThe time of a pass is not known: there were fewer than two passes.\n";
    return;
  }
  append(out, "\nA pass of one thread takes {} (mean of {}), and {} at most\n",
         durationText(pass->mean), pass->passes, durationText(pass->longest));
  Rows rows{{"sampling threads", "longest pass"}};
  for (const std::size_t threads : threadNumbers(report))
    rows.push_back({std::to_string(threads), durationText(longestShare(*pass, threads))});
  if (rows.size() > 1)
    out += textTable("rr", rows) +
           "  computed from the reads of one thread; the SDK must allow calls at the same time\n";
}

void appendMeasurement(std::string& out, const CheckReport& report) {
  if (!report.measurement) return;
  const Measurement& measurement = *report.measurement;
  append(out, "\nMeasured for {}, at an interval of {}\n", durationText(measurement.lasted),
         durationText(measurement.interval));
  Rows rows{{"device", "samples", "failed", "last failure"}};
  for (const MeasuredDevice& one : measurement.devices)
    rows.push_back({one.name, std::to_string(one.samples), std::to_string(one.failed),
                    orDash(one.last_failure)});
  out += textTable("lrrl", rows);
  appendCounters(out, measurement);
  appendPass(out, report);
}

}  // namespace

std::string asText(const CheckReport& report) {
  std::string out;
  appendOutcome(out, report);
  appendSummary(out, report);
  appendWarnings(out, report);
  appendDevices(out, report);
  appendByteCounters(out, report);
  appendMeasurement(out, report);
  appendTypes(out, report);
  return out;
}

}  // namespace tev::host
