#include "host/commands/run.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/commands/summary.h"
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
constexpr std::uint64_t kUsualIntervalUsec = 1'000'000;  // when the plug-in does not describe it
constexpr std::uint64_t kLongestIntervalUsec = 86'400'000'000;  // a day
constexpr std::size_t kNotes = 3;                               // log lines below the live table

const OutputFormat& formatFor(const RunOptions& options, const OutputFile& file) {
  return options.format ? *options.format
                        : *findOutputFormat(file.isTerminal() ? "table" : "jsonl");
}

std::uint64_t sampleIntervalUsec(const PluginOptions& plugin, const OptionTable& table) {
  const std::uint64_t interval =
      numberOption(plugin.options, table, kIntervalKey).value_or(kUsualIntervalUsec);
  if (interval == 0)
    throw UsageError(fmt::format("--jitter needs an interval: {} is 0", kIntervalKey));
  return std::min(interval, kLongestIntervalUsec);
}

std::unique_ptr<JitterMeter> jitterMeterFor(const RunOptions& options, const Projection& projection,
                                            const OptionTable& table) {
  if (!options.jitter) return nullptr;
  return std::make_unique<JitterMeter>(projection, sampleIntervalUsec(options.plugin, table));
}

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

// The part of a run from the first fetch to the last.
class Sampling {
 public:
  Sampling(const RunOptions& options, EventSource& source, Delivery& delivery)
      : options_(options), source_(source), delivery_(delivery) {}

  // Throws RunError and ClosedPipe.
  void run() {
    start_ = Clock::now();
    if (options_.duration) end_ = start_ + *options_.duration;
    delivery_.update(status());
    fetchUntilTheEnd();
    source_.stop();
    source_.drain(take_, [] { return StopSignal::requests() > 1; });
    delivery_.end(status());
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

  LogHold log_hold;  // declared first, so that it is released after the outputs
  const auto written = formatFor(options, file).make({projection, file});
  const auto jitter = jitterMeterFor(options, projection, source.options());
  log_hold.holdFor(*written);

  std::vector<Output*> outputs{written.get()};
  if (jitter) outputs.push_back(jitter.get());
  Delivery delivery(source.schema(), outputs, options.samples);
  delivery.begin();

  Sampling sampling(options, source, delivery);
  const auto finish = [&] {
    const double elapsed = sampling.elapsedSeconds();
    source.stop();
    delivery.leave();
    log_hold.release();
    std::string text = summarize(elapsed, cpuTime(), delivery, projection, source.counts());
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
  return kExitFine;
}

}  // namespace tev::host
