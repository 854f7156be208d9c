#include "host/commands/run.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "host/commands/interval_advice.h"
#include "host/commands/summary.h"
#include "host/figures/fast_counters.h"
#include "host/figures/figures.h"
#include "host/outputs/delivery.h"
#include "host/plugin/plugin_source.h"
#include "host/support/errors.h"
#include "host/support/log.h"
#include "host/support/stop_signal.h"
#include "host/timing/jitter.h"

namespace tev::host {
namespace {

using Clock = std::chrono::steady_clock;

constexpr char kIntervalKey[] = "multipath-sample-interval-usec";
constexpr char kClearKey[] = "multipath-clear-sampled-counters";
constexpr std::uint64_t kUsualIntervalUsec = 1'000'000;  // when the plug-in does not describe it
constexpr std::uint64_t kLongestIntervalUsec = 86'400'000'000;  // a day
constexpr std::size_t kNotes = 3;                               // log lines below the live table

const OutputFormat& formatFor(const RunOptions& options, const OutputFile& file) {
  const bool derived = options.rates || options.window;
  const OutputFormat* format = options.format;
  if (!format) format = findOutputFormat(file.isTerminal() && !derived ? "table" : "jsonl");
  if (derived && !format->is_machine_readable)
    throw UsageError(
        fmt::format("{} needs --format jsonl or csv", options.rates ? "--rates" : "--window"));
  return *format;
}

std::optional<std::uint64_t> windowUsec(const RunOptions& options) {
  if (!options.window) return std::nullopt;
  return static_cast<std::uint64_t>(std::chrono::microseconds(*options.window).count());
}

// 0: as fast as possible.
std::uint64_t intervalUsec(const RunOptions& options, const OptionTable& table) {
  const std::uint64_t interval =
      numberOption(options.plugin.options, table, kIntervalKey).value_or(kUsualIntervalUsec);
  return std::min(interval, kLongestIntervalUsec);
}

// A device is silent after some intervals without a sample. Samples arrive only at updates.
std::uint64_t patienceUsec(const RunOptions& options, const OptionTable& table) {
  constexpr std::uint64_t kIntervals = 5;
  const auto update = std::chrono::microseconds(options.update).count();
  return kIntervals * (intervalUsec(options, table) + static_cast<std::uint64_t>(update));
}

std::unique_ptr<JitterMeter> jitterMeterFor(const RunOptions& options, const Projection& projection,
                                            const OptionTable& table) {
  if (!options.jitter) return nullptr;
  const std::uint64_t interval = intervalUsec(options, table);
  if (interval == 0)
    throw UsageError(fmt::format("--jitter needs an interval: {} is 0", kIntervalKey));
  return std::make_unique<JitterMeter>(projection, interval);
}

std::uint64_t nowUsec() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return static_cast<std::uint64_t>(
      std::chrono::duration_cast<std::chrono::microseconds>(now).count());
}

// Tells the user, once for each fact, what happens to devices and counters.
class Announcements {
 public:
  Announcements(const Delivery& delivery, const Figures& figures)
      : delivery_(delivery), figures_(figures) {}

  // To be called after each update.
  void say() {
    const HealthWatch& health = delivery_.health();
    for (const StateChange& change : health.changes())
      sayLine(describe(change, health.devices()[change.device]));
    for (const FastCounter& counter : fastCounters(figures_))
      if (said_.insert(counter.name).second) sayLine(describe(counter));
  }

 private:
  static void sayLine(const std::string& text) {
    if (!text.empty()) Log::instance().say("tev-host: " + text);
  }

  const Delivery& delivery_;
  const Figures& figures_;
  std::set<std::string> said_;  // names of counters
};

// Keeps log lines off the terminal while an output draws on it.
class LogHold {
 public:
  LogHold() = default;
  ~LogHold() { release(); }
  LogHold(const LogHold&) = delete;
  LogHold& operator=(const LogHold&) = delete;

  void holdFor(const Output& output) {
    if (!output.drawsOnTerminal() || isatty(STDERR_FILENO) != 1) return;
    Log::instance().holdBack();
    held_ = true;
  }
  void release() {
    if (std::exchange(held_, false)) Log::instance().release();
  }

 private:
  bool held_ = false;
};

// A plug-in that counts samples reports the names of its devices before the first event.
void expectDevices(const DeviceFilter& filter, const EventSource& source) {
  std::vector<std::string> names;
  for (const DeviceCounts& one : source.counts().value_or(std::vector<DeviceCounts>{}))
    names.push_back(one.device);
  filter.expectOneOf(names);
}

// If a plug-in does not count samples, its devices are known only from the events.
void expectDevices(const DeviceFilter& filter, const Delivery& delivery) {
  std::vector<std::string> names;
  for (const Delivery::SeriesCount& one : delivery.series())
    if (std::ranges::find(names, one.series->device) == names.end())
      names.push_back(one.series->device);
  filter.expectOneOf(names);
}

// Throws RunError, with the reason, when no sample was read.
void expectSamples(const Delivery& delivery) {
  if (std::ranges::any_of(delivery.series(), &Delivery::SeriesCount::arrived)) return;
  std::string text = "no sample was read";
  for (const DeviceHealth& device : delivery.health().devices())
    if (const std::string missing = describeMissing(device.counts); !missing.empty())
      text += fmt::format("\n  {}: {}", device.counts.device, missing);
  throw RunError(text);
}

bool isAnyMissing(const Delivery& delivery) {
  return std::ranges::any_of(delivery.health().devices(), [](const DeviceHealth& device) {
    return missingSamples(device.counts) > 0;
  });
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

// The part of a run from the first fetch to the last.
class Sampling {
 public:
  Sampling(const RunOptions& options, EventSource& source, Delivery& delivery,
           const Figures& figures)
      : options_(options),
        source_(source),
        delivery_(delivery),
        announcements_(delivery, figures) {}

  // Throws RunError and ClosedPipe.
  void run() {
    start_ = Clock::now();
    if (options_.duration) end_ = start_ + *options_.duration;
    delivery_.update(status());
    announcements_.say();
    fetchUntilTheEnd();
    source_.stop();
    source_.drain(take_, [] { return StopSignal::requests() > 1; });
    delivery_.end(status());
    announcements_.say();
  }

  double elapsedSeconds() const {
    return std::chrono::duration<double>(Clock::now() - start_).count();
  }

 private:
  void fetchUntilTheEnd() {
    Clock::time_point due = start_;
    bool more = true;
    while (more && !delivery_.isComplete() && !delivery_.isHopeless()) {
      due = nextDue(due);
      StopSignal::waitUntil(options_.duration ? std::min(due, end_) : due);
      if (isOver()) return;  // drain() fetches the remaining events
      more = source_.fetch(take_, [this] { return isOver(); });
      delivery_.update(status());
      announcements_.say();
    }
  }

  bool isOver() const {
    return StopSignal::requests() > 0 || (options_.duration && Clock::now() >= end_);
  }

  // Due times are on a fixed grid. Missed due times are skipped.
  Clock::time_point nextDue(Clock::time_point due) const {
    const Clock::duration late = std::max(Clock::now() - due, Clock::duration::zero());
    return due + options_.update * (late / options_.update + 1);
  }

  RunStatus status() {
    RunStatus status;
    status.source = source_.name();
    status.elapsed_seconds = elapsedSeconds();
    status.now_usec = nowUsec();
    status.devices = source_.counts().value_or(std::vector<DeviceCounts>{});
    for (const DeviceCounts& one : status.devices) status.lost_samples += one.lost;
    if (status.lost_samples > 0) warnOfLoss();
    status.notes = Log::instance().lastHeldBack(kNotes);
    return status;
  }

  void warnOfLoss() {
    if (std::exchange(warned_of_loss_, true)) return;
    Log::instance().say(
        "tev-host: samples are being lost: lower --update or raise multipath-max-buffer-size");
  }

  const RunOptions& options_;
  EventSource& source_;
  Delivery& delivery_;
  const BlockConsumer take_ = [this](Blocks blocks) { delivery_.take(blocks); };
  Announcements announcements_;
  bool warned_of_loss_ = false;
  Clock::time_point start_;
  Clock::time_point end_;
};

}  // namespace

int run(const RunOptions& options) {
  const StopSignal stop_signal;
  OutputFile file(options.output);
  PluginSource source(options.plugin, options.buffer_bytes);
  const Projection projection(source.schema(), options.selection);
  expectDevices(projection.devices(), source);
  adviseInterval(options, source, projection);

  CountingOptions counting = options.counting;
  counting.clear_on_read = booleanOption(options.plugin.options, source.options(), kClearKey);
  Figures figures(projection, counting, intervalUsec(options, source.options()));

  LogHold log_hold;  // declared first, so that it is released after the outputs
  const auto written = formatFor(options, file)
                           .make({projection, figures, file, options.rates, windowUsec(options)});
  const auto jitter = jitterMeterFor(options, projection, source.options());
  log_hold.holdFor(*written);

  std::vector<Output*> outputs{written.get()};
  if (jitter) outputs.push_back(jitter.get());
  Delivery delivery(source.schema(), outputs, figures, options.samples,
                    patienceUsec(options, source.options()));
  delivery.begin();

  Sampling sampling(options, source, delivery, figures);
  const auto finish = [&] {
    const double elapsed = sampling.elapsedSeconds();
    source.stop();
    delivery.leave();
    log_hold.release();
    std::string text = summarize(elapsed, cpuTime(), delivery, figures);
    if (jitter) text += jitter->report();
    std::fputs(text.c_str(), stderr);
  };
  try {
    sampling.run();
    expectDevices(projection.devices(), delivery);
  } catch (const ClosedPipe&) {
    return kExitFine;
  } catch (const RunError&) {
    finish();
    throw;
  }
  finish();
  expectSamples(delivery);
  return options.strict && isAnyMissing(delivery) ? kExitMissing : kExitFine;
}

}  // namespace tev::host
