#include "host/commands/run.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/commands/interval_advice.h"
#include "host/commands/known_options.h"
#include "host/commands/log_hold.h"
#include "host/commands/recording.h"
#include "host/commands/run_outputs.h"
#include "host/commands/sampling.h"
#include "host/commands/summary.h"
#include "host/commands/writing.h"
#include "host/figures/figures.h"
#include "host/outputs/delivery.h"
#include "host/plugin/plugin_source.h"
#include "host/screen/curses_terminal.h"
#include "host/support/errors.h"
#include "host/support/log.h"
#include "host/support/stderr_text.h"
#include "host/support/stop_signal.h"

namespace tev::host {
namespace {

constexpr std::uint64_t kUsualIntervalUsec = 1'000'000;  // when the plug-in does not describe it
constexpr std::uint64_t kLongestIntervalUsec = 86'400'000'000;  // a day

// 0: as fast as possible.
std::uint64_t intervalUsec(const RunOptions& options, const OptionTable& table) {
  const std::uint64_t interval =
      numberOption(options.plugin.options, table, kSampleIntervalKey).value_or(kUsualIntervalUsec);
  return std::min(interval, kLongestIntervalUsec);
}

// A plug-in that counts samples reports the names of its devices before the first event.
void expectDevicesOf(const EventSource& source, const DeviceFilter& filter) {
  std::vector<std::string> names;
  for (const DeviceCounts& one : source.counts().value_or(std::vector<DeviceCounts>{}))
    names.push_back(one.device);
  filter.expectOneOf(names);
}

bool isAnyMissing(const Delivery& delivery) {
  return std::ranges::any_of(delivery.health().devices(), [](const DeviceHealth& device) {
    return missingSamples(device.counts) > 0;
  });
}

// Throws RunError, with the reason, when no sample was read, unless the user ended the run before
// the first one.
void expectSamples(const Delivery& delivery) {
  if (std::ranges::any_of(delivery.series(), &Delivery::SeriesCount::arrived)) return;
  if (StopSignal::requests() > 0 && !isAnyMissing(delivery)) return;
  std::string text = "no sample was read";
  for (const DeviceHealth& device : delivery.health().devices())
    if (const std::string missing = describeMissing(device.counts); !missing.empty())
      text += fmt::format("\n  {}: {}", device.counts.device, missing);
  throw RunError(text);
}

// Says which interval counters of bytes need, if the interval of this run is longer.
void adviseInterval(const RunOptions& options, const PluginSource& source,
                    const Projection& projection) {
  const auto interval = sampleInterval(options.plugin.options, source.options());
  if (!interval) return;
  const std::string advice =
      intervalAdvice(source.devices(), projection, *interval, options.link_gbits);
  if (!advice.empty()) Log::instance().say("tev-host: " + advice);
}

// A counter of bytes may go round more than once between two samples when its link is too fast for
// the interval.
Figures::Doubt doubtFor(const RunOptions& options, const PluginSource& source) {
  const auto interval = sampleInterval(options.plugin.options, source.options());
  std::map<std::string, double> link_gbits;
  if (interval)
    for (const DeviceInfo& device : source.devices())
      if (const auto speed = linkSpeedOf(device, options.link_gbits))
        link_gbits.emplace(device.name, *speed);
  return [interval, link_gbits](const Series& series, const Column& column) {
    const auto speed = link_gbits.find(series.device);
    return speed != link_gbits.end() && !followsByteCounters(*interval, speed->second, column);
  };
}

}  // namespace

int run(const RunOptions& options) {
  if (options.full_screen) expectTerminal();
  const StopSignal stop_signal(options.capture ? HangUp::counts : HangUp::stops);
  Connections connections;
  connections.metrics = serveMetrics(options);  // these may fail: before a file is created, and
  connections.bus = connectToBus(options);      // before the plug-in samples
  OutputFile file(options.output);
  expectOtherFile(file.descriptor(), inputsOf(options));
  PluginSource source(options.plugin, options.buffer_bytes);
  const Projection projection(source.schema(), options.selection);
  expectDevicesOf(source, projection.devices());
  adviseInterval(options, source, projection);

  CountingOptions counting = options.counting;
  counting.clear_on_read = booleanOption(options.plugin.options, source.options(), kClearKey);
  Figures figures(projection, counting, intervalUsec(options, source.options()),
                  doubtFor(options, source));

  LogHold log_hold;  // declared first, so that it is released after the outputs
  RunOutputs outputs(options, source, figures, file, counting.clear_on_read,
                     std::move(connections));
  log_hold.holdFor(outputs.written());
  Delivery delivery(source.schema(), outputs.all(), figures, options.samples,
                    silenceUsec(figures.intervalUsec(), options.update));
  delivery.begin();

  Sampling sampling(options, source, delivery, figures, outputs.written().interaction());
  file.whileStalled([&](auto stalled) { return sampling.isWorthWaiting(stalled, file.name()); });
  const auto finish = [&] {
    const double elapsed = sampling.elapsedSeconds();
    sampling.stopSource();
    delivery.leave();
    closeAfterFailure(file);
    for (const std::size_t series : file.missingRecords()) delivery.takeBack(series);
    log_hold.release();
    if (options.full_screen) return source.close();
    std::string text = summarize(elapsed, cpuTime(), delivery, figures);
    text += missingText(file);
    text += outputs.summary();
    showOnStderr(text);
    return source.close();
  };
  try {
    sampling.run();
    expectDevicesOf(delivery, projection.devices());
  } catch (const ClosedPipe&) {  // the summary says what its reader missed
  } catch (const RunError&) {
    finish();
    throw;
  }
  const bool is_closed = finish();
  if (file.isGivenUp())
    throw RunError(fmt::format("the reader of {} stopped reading", file.name()));
  if (!is_closed) throw RunError("the plug-in did not answer, and the run ended without it");
  expectSamples(delivery);
  const bool is_incomplete = isAnyMissing(delivery) || outputs.areUndelivered();
  return options.strict && is_incomplete ? kExitMissing : kExitFine;
}

}  // namespace tev::host
