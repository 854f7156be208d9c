#include "host/commands/check.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "host/commands/check_report.h"
#include "host/commands/interval_advice.h"
#include "host/commands/known_options.h"
#include "host/commands/writing.h"
#include "host/figures/figures.h"
#include "host/kafka/settings.h"
#include "host/metrics/metrics_output.h"
#include "host/outputs/output_file.h"
#include "host/plugin/plugin_source.h"
#include "host/support/duration_text.h"
#include "host/support/errors.h"
#include "host/support/short_number.h"
#include "host/support/stop_signal.h"
#include "host/support/text.h"
#include "src/support/text.h"

namespace tev::host {
namespace {

std::optional<std::string> sdkLibrary(const GivenOptions& given, const OptionTable& table) {
  const OptionInfo* const other = findOption(table, kOtherLibraryPathKey);
  if (!findOption(table, kLibraryPathKey) || !other) return std::nullopt;
  for (const char* const key : {kLibraryPathKey, kOtherLibraryPathKey})
    if (const std::string* const path = givenValue(given, key))
      return path->empty() ? other->default_value : *path;
  return other->default_value;
}

void setReason(CheckReport& report, const std::string& text) {
  for (const std::string_view line : support::Lines(text))
    if (report.reason.empty())
      report.reason = asPrintable(line);
    else
      report.details.push_back(asPrintable(string::trim(line)));
}

// Whether there are devices, and each of them is left out for a reason of its own.
bool allAreLeftOut(const std::vector<DeviceInfo>& devices) {
  return !devices.empty() && std::ranges::none_of(devices, [](const DeviceInfo& one) {
    return one.is_sampled || one.reason.empty();
  });
}

void describeDevices(CheckReport& report, const std::vector<DeviceInfo>& devices,
                     std::optional<double> link_gbits) {
  report.devices.emplace();
  for (const DeviceInfo& device : devices) {
    CheckedDevice& added = report.devices->emplace_back();
    added.info = device;
    if (!device.is_sampled) continue;
    added.link_gbits = linkSpeedOf(device, link_gbits);
    if (report.schema) added.sample = sampleSize(device, *report.schema);
  }
}

void listByteCounters(CheckReport& report) {
  const auto interval = report.interval();
  if (!interval) return;
  for (const TypeView& type : report.schema->types())
    for (const Column& column : type.columns)
      if (countsBytes(column))
        report.byte_counters.push_back(
            {type.name, column.name, bitsOf(column),
             gbitsPerSecond(highestSafeRate(bitsOf(column), *interval))});
}

void warnOfSmallBuffers(CheckReport& report) {
  const auto interval = report.interval();
  if (!interval || !report.devices) return;
  const double wanted =
      std::ceil(static_cast<double>(report.update_msec) / 1e3 / interval->count());
  std::vector<std::string> names;
  for (const CheckedDevice& device : *report.devices)
    if (device.info.is_sampled && static_cast<double>(device.info.buffer_samples) < wanted)
      names.push_back(device.info.name);
  if (!names.empty())
    report.warnings.push_back(
        fmt::format("samples will be lost: {:.0f} are taken from one fetch to the next, and the "
                    "buffers hold fewer of {}: lower --update or raise {}",
                    wanted, commaSeparated(names), kMaxBufferSizeKey));
}

// What the set-up with the given options tells.
CheckReport describe(const RunOptions& run) {
  CheckReport report;
  report.plugin_path = run.plugin.path;
  report.update_msec = static_cast<std::uint64_t>(run.update.count());
  PluginOptions options = run.plugin;
  withoutClearing(options);
  SetUpFindings findings;
  try {
    PluginSource source(options, run.buffer_bytes, &findings);
    report.plugin_name = asPrintable(source.name());
    report.schema = source.takeSchema();
    if (!source.close()) throw RunError("the plug-in did not release its devices");
  } catch (const RunError& error) {
    if (findings.devices && allAreLeftOut(*findings.devices))
      report.reason = fmt::format("no device can be sampled: {} left out",
                                  findings.devices->size() == 1
                                      ? "the only one is"
                                      : fmt::format("all {} are", findings.devices->size()));
    setReason(report, error.what());
  }
  report.warnings = findings.warnings;
  report.sdk_library = sdkLibrary(run.plugin.options, findings.table);
  report.interval_usec = numberOption(run.plugin.options, findings.table, kSampleIntervalKey);
  if (findings.devices) describeDevices(report, *findings.devices, run.link_gbits);
  if (!report.works()) return report;

  listByteCounters(report);
  const auto threads = numberOption(run.plugin.options, findings.table, kSamplingThreadsKey);
  if (threads && report.devices) {
    const std::uint64_t devices = std::max<std::uint64_t>(report.numSampled(), 1);
    report.threads = *threads == 0 ? devices : std::min(*threads, devices);
  }
  warnOfSmallBuffers(report);
  if (report.interval_usec == std::uint64_t{0})
    report.warnings.push_back(fmt::format(
        "{}=0: samples are taken faster than a host can fetch them, and some will be lost",
        kSampleIntervalKey));
  if (const auto interval = report.interval(); interval && findings.devices) {
    const Projection everything(*report.schema);
    auto advice = intervalAdvice(*findings.devices, everything, *interval, run.link_gbits);
    if (!advice.empty()) report.warnings.push_back(std::move(advice));
  }
  return report;
}

// Names the counters that moved too fast for the interval.
void warnOfFastCounters(CheckReport& report) {
  const auto interval = report.interval();
  if (!interval) return;
  const MeasuredCounter* fastest = nullptr;
  std::size_t number = 0;
  for (const MeasuredCounter& one : report.measurement->counters) {
    if (!one.safe_interval || *one.safe_interval >= *interval) continue;
    ++number;
    if (!fastest || *one.safe_interval < *fastest->safe_interval) fastest = &one;
  }
  if (!fastest) return;
  const std::string others =
      number == 1 ? "" : fmt::format(" and {} more counter{}", number - 1, number > 2 ? "s" : "");
  report.warnings.push_back(
      fmt::format("{}.{}{}: moved at {}/s, which needs an interval of at most {}, and it is {}",
                  asPrintable(fastest->type), asPrintable(fastest->name), others,
                  shortNumber(fastest->highest_rate), durationText(*fastest->safe_interval),
                  durationText(*interval)));
}

void warnOfLongPass(CheckReport& report) {
  const auto interval = report.interval();
  const auto& pass = report.measurement->pass;
  if (!interval || !pass || pass->reads.empty()) return;
  const auto threads = std::min<std::size_t>(report.threads.value_or(1), pass->reads.size());
  const Seconds longest = longestShare(*pass, threads);
  if (longest > *interval)
    report.warnings.push_back(fmt::format(
        "samples will be missed: a pass takes {} with {} sampling thread{}, and the "
        "interval is {}",
        durationText(longest), threads, threads == 1 ? "" : "s", durationText(*interval)));
}

void addMeasurement(CheckReport& report, const PluginOptions& options,
                    std::chrono::nanoseconds duration) {
  try {
    report.measurement = measure(options, duration);
  } catch (const RunError& error) {
    setReason(report, error.what());
    return;
  }
  const auto& devices = report.measurement->devices;
  const std::string& pending = report.measurement->pending_reads;
  if (!pending.empty()) report.warnings.push_back(pending);
  if (std::ranges::none_of(devices, [](const auto& one) { return one.samples > 0; })) {
    report.reason = fmt::format("no device delivered a sample within {}",
                                durationText(report.measurement->lasted));
    if (!pending.empty())
      report.reason += "; " + pending;
    else if (!devices.empty() && !devices.front().last_failure.empty())
      report.reason += "; last failure: " + devices.front().last_failure;
  }
  warnOfFastCounters(report);
  warnOfLongPass(report);
}

void expectRoomForCapture(const CaptureOptions& capture) {
  const std::filesystem::path path = capture.path;
  std::error_code error;
  if (!std::filesystem::is_directory(path.has_parent_path() ? path.parent_path() : ".", error))
    throw UsageError(
        fmt::format("--capture {}: its folder does not exist", asPrintable(capture.path)));
  if (!capture.rotates() && std::filesystem::exists(path, error))
    throw UsageError(fmt::format("--capture {}: it exists", asPrintable(capture.path)));
}

// What only a run uses, and a configuration file for both may have. Throws UsageError.
void expectUsable(const RunOptions& run, const CheckReport& report) {
  const Projection projection(*report.schema, run.selection);
  const Figures figures(projection, run.counting);
  if (run.format) formatFor(run, OutputFile(""));
  if (run.capture) expectRoomForCapture(*run.capture);
  if (run.prometheus) expectDistinctMetrics(figures);
  if (!run.kafka.brokers.empty()) readKafkaSettings(run.kafka);
  if (!report.devices) return;
  std::vector<std::string> names;
  for (const CheckedDevice& device : *report.devices)
    if (device.info.is_sampled) names.push_back(device.info.name);
  projection.devices().expectOneOf(names);
}

}  // namespace

int check(const RunOptions& run, const CheckOptions& options) {
  const StopSignal stop_signal;
  OutputFile output("");
  CheckReport report = describe(run);
  if (report.works()) expectUsable(run, report);
  if (report.works() && options.measure) addMeasurement(report, run.plugin, *options.measure);
  output.buffer() = options.json ? asJson(report) : asText(report);
  try {
    output.close();
  } catch (const ClosedPipe&) {  // the reader closed the pipe, which is not an error
  }
  return report.works() ? kExitFine : kExitFailed;
}

}  // namespace tev::host
