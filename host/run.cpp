#include "host/run.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

#include "host/delivery.h"
#include "host/errors.h"
#include "host/fetcher.h"
#include "host/formatter.h"
#include "host/host_log.h"
#include "host/jitter.h"
#include "host/output_file.h"
#include "host/schema_view.h"
#include "host/selection.h"
#include "host/session.h"
#include "host/stop_signal.h"
#include "host/summary.h"
#include "host/terminal.h"

namespace tev::host {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint64_t kLongestIntervalUsec = 86'400'000'000;  // a day
constexpr std::size_t kNotes = 3;                               // log lines below the live table

Format formatFor(const RunOptions& options, const OutputFile& output) {
  return options.format.value_or(output.isTerminal() ? Format::table : Format::jsonl);
}

std::unique_ptr<Formatter> makeFormatter(Format format, const SchemaView& schema,
                                         OutputFile& output) {
  switch (format) {
    case Format::jsonl:
      return makeJsonlFormatter(schema, output);
    case Format::csv:
      return makeCsvFormatter(schema, output);
    case Format::table:
      break;
  }
  return makeTableFormatter(output);
}

// What the plug-in was told, read as it reads it, or goes by otherwise.
std::uint64_t sampleIntervalUsec(const std::vector<std::pair<std::string, std::string>>& options) {
  std::uint64_t interval = 1'000'000;
  for (const auto& [key, value] : options)
    if (key == "multipath-sample-interval-usec")
      interval = std::strtoull(value.c_str(), nullptr, 10);
  if (interval == 0)
    throw UsageError("--jitter needs an interval: multipath-sample-interval-usec is 0");
  return std::min(interval, kLongestIntervalUsec);
}

// While the table is drawn upon the terminal, log lines must not be.
class LogOffTheScreen {
 public:
  LogOffTheScreen(Format format, const OutputFile& output)
      : held_(format == Format::table && canRedraw(output) && isatty(STDERR_FILENO) == 1) {
    if (held_) HostLog::instance().holdBack();
  }
  ~LogOffTheScreen() { release(); }
  LogOffTheScreen(const LogOffTheScreen&) = delete;
  LogOffTheScreen& operator=(const LogOffTheScreen&) = delete;

  void release() {
    if (std::exchange(held_, false)) HostLog::instance().release();
  }

 private:
  bool held_;
};

// One run, from a plug-in that has been set up to the summary.
class Run {
 public:
  Run(const RunOptions& options, OutputFile& output)
      : options_(options),
        output_(output),
        session_(options.plugin),
        schema_(selected(*session_.types(), options.selection)),
        devices_(options.selection.filter),
        log_off_the_screen_(formatFor(options, output), output),
        formatter_(makeFormatter(formatFor(options, output), schema_, output)),
        jitter_(options.jitter ? measureJitter() : nullptr),
        delivery_(schema_, devices_, *formatter_, options.samples),
        fetcher_(session_.provider(), session_.types(), options.buffer_bytes,
                 [this](std::span<const std::uint8_t> blocks) {
                   delivery_.consume(blocks);
                   output_.flushWhenLarge();
                 }) {
    if (const auto counts = session_.provider().sampleCounts()) {
      std::vector<std::string> names;
      for (const DeviceCounts& one : *counts) names.push_back(one.device);
      devices_.expectOneOf(names);
    }
    output_.begin();
  }

  // Throws what ends the run early; the summary is worth printing nevertheless.
  void sample() {
    start_ = Clock::now();
    if (options_.duration) end_ = start_ + *options_.duration;
    formatter_->update(status());
    output_.flush();
    fetchUntilTheEnd();
    session_.provider().stop();
    if (!fetcher_.drain([] { return StopSignal::requests() > 1; }))
      HostLog::instance().say("tev-host: the plug-in went on delivering after its stop: cut off");
    formatter_->end(status());
    output_.close();
    expectAnyWanted();
  }

  void printSummary() {
    const double elapsed = elapsedSeconds();
    session_.provider().stop();
    formatter_->leave();  // puts the terminal back in order
    log_off_the_screen_.release();
    std::string text = summarize(elapsed, cpuTime(), delivery_, session_.provider().sampleCounts());
    if (jitter_) text += jitter_->report();
    std::fputs(text.c_str(), stderr);
  }

 private:
  static SchemaView selected(const tev_type_system_t& types, const SelectionOptions& options) {
    SchemaView schema(types);
    select(schema, options);
    return schema;
  }

  // Puts a meter before the formatter.
  JitterMeter* measureJitter() {
    auto meter = std::make_unique<JitterMeter>(std::move(formatter_),
                                               sampleIntervalUsec(options_.plugin.options));
    JitterMeter* const jitter = meter.get();
    formatter_ = std::move(meter);
    return jitter;
  }

  // Not every plug-in names its devices before their events do.
  void expectAnyWanted() const {
    std::vector<std::string> names;
    for (const Series& series : delivery_.series().all())
      if (std::ranges::find(names, series.device) == names.end()) names.push_back(series.device);
    devices_.expectOneOf(names);
  }

  bool isOver() const {
    return StopSignal::requests() > 0 || (options_.duration && Clock::now() >= end_);
  }

  void fetchUntilTheEnd() {
    Clock::time_point due = start_;
    while (!delivery_.isComplete() && !delivery_.isHopeless()) {
      due = nextDue(due);
      StopSignal::waitUntil(options_.duration ? std::min(due, end_) : due);
      if (isOver()) return;  // what there is comes with the drain
      fetcher_.round([this] { return isOver(); });
      formatter_->update(status());
      output_.flush();
    }
  }

  // Due times stand on a fixed grid; those that have been missed are left out.
  Clock::time_point nextDue(Clock::time_point due) const {
    const Clock::duration late = std::max(Clock::now() - due, Clock::duration::zero());
    return due + options_.update * (late / options_.update + 1);
  }

  double elapsedSeconds() const {
    return std::chrono::duration<double>(Clock::now() - start_).count();
  }

  RunStatus status() {
    RunStatus status;
    status.provider = session_.provider().name();
    status.elapsed_seconds = elapsedSeconds();
    status.lost_samples = lostSamples();
    status.notes = HostLog::instance().lastHeldBack(kNotes);
    return status;
  }

  // Says so, once, when there are any.
  std::uint64_t lostSamples() {
    const auto counts = session_.provider().sampleCounts();
    if (!counts) return 0;
    const auto lost = std::accumulate(
        counts->begin(), counts->end(), std::uint64_t{0},
        [](std::uint64_t sum, const DeviceCounts& one) { return sum + one.counts.lost; });
    if (lost > 0 && !std::exchange(said_lost_, true))
      HostLog::instance().say(
          "tev-host: samples are being lost: lower --update or raise multipath-max-buffer-size");
    return lost;
  }

  const RunOptions& options_;
  OutputFile& output_;
  Session session_;
  SchemaView schema_;
  DeviceFilter devices_;
  LogOffTheScreen log_off_the_screen_;
  std::unique_ptr<Formatter> formatter_;
  JitterMeter* jitter_;  // the formatter, when it is one
  Delivery delivery_;
  Fetcher fetcher_;
  bool said_lost_ = false;
  Clock::time_point start_;
  Clock::time_point end_;
};

}  // namespace

int run(const RunOptions& options) {
  const StopSignal stop_signal;
  OutputFile output(options.output);
  Run run(options, output);
  try {
    run.sample();
  } catch (const ClosedPipe&) {
    return kExitFine;
  } catch (const RunError&) {
    run.printSummary();
    throw;
  }
  run.printSummary();
  return kExitFine;
}

}  // namespace tev::host
