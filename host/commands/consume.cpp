#include "host/commands/consume.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "host/fleet/aggregate.h"
#include "host/fleet/parquet_worker.h"
#include "host/fleet/sink.h"
#include "host/fleet/stream_worker.h"
#include "host/fleet/worker_metrics.h"
#include "host/kafka/consumer.h"
#include "host/outputs/output_file.h"
#include "host/support/bounded_write.h"
#include "host/support/errors.h"
#include "host/support/log.h"
#include "host/support/short_number.h"
#include "host/support/stderr_text.h"
#include "host/support/stop_signal.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kRetry{2};           // after a write that failed
constexpr std::chrono::seconds kLongestRetry{240};  // then the group gives the partitions away
constexpr std::chrono::milliseconds kUpdate{1000};
constexpr std::size_t kMostMessages = 500;  // of a poll

// Waits before a write is repeated that has been failing for so long. False: it is given up.
bool isWorthAnother(Clock::duration failing) {
  StopSignal::waitUntil(Clock::now() + kRetry);
  return StopSignal::requests() == 0 && failing < kLongestRetry;
}

RangeLimits settledLimits(const ConsumeOptions& options, RangeFolder& folder) {
  const RangeLimits limits = folder.settle(options.limits);
  if (options.limits_given && limits != options.limits)
    throw UsageError(fmt::format(
        "{} has ranges of --range-size {} --range-messages {} --range-time {}, which cannot be "
        "changed; another folder can have others",
        asPrintable(options.output), limits.bytes, limits.messages, limits.seconds));
  return limits;
}

std::unique_ptr<Sink> makeSink(const ConsumeOptions& options) {
  if (options.format == ConsumeFormat::csv) return makeCsvSink(options.output);
  if (options.format == ConsumeFormat::capture) return makeCaptureSink(options.output);
  return makeJsonlSink(options.output);
}

std::int64_t lagOf(Subscription& subscription) {
  std::int64_t sum = 0;
  for (const PartitionLag& one : subscription.lags())
    if (one.end >= 0) sum += std::max<std::int64_t>(one.end - one.position, 0);
  return sum;
}

// The state on the terminal, which is written again and again.
class Progress {
 public:
  Progress() : is_shown_(isatty(STDERR_FILENO) == 1) {}
  ~Progress() { clear(); }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void show(const FleetCounts& counts, Subscription& subscription, double seconds) {
    if (!is_shown_) return;
    const auto rate = [seconds](std::uint64_t now, std::uint64_t before) {
      return shortNumber(seconds > 0 ? static_cast<double>(now - std::min(now, before)) / seconds
                                     : 0.0);
    };
    const std::string faults = faultsText(counts);
    write(fmt::format("\r\x1b[K{} messages, {} events/s, {}B/s, {} messages behind{}{}",
                      counts.messages, rate(counts.events, before_.events),
                      rate(counts.bytes, before_.bytes), lagOf(subscription),
                      faults.empty() ? "" : "; ", faults));
    is_drawn_ = true;
    before_ = counts;
  }

  void clear() {
    if (std::exchange(is_drawn_, false)) write("\r\x1b[K");
  }

 private:
  static void write(const std::string& text) {
    writeAll(STDERR_FILENO, text, std::chrono::milliseconds(100));
  }

  bool is_shown_;
  bool is_drawn_ = false;
  FleetCounts before_;
};

std::string summaryOf(const FleetCounts& counts, double seconds) {
  const std::string faults = faultsText(counts);
  return fmt::format("tev-host: {} with {} ({}B) in {:.1f} s{}{}\n",
                     counted(counts.messages, "message"), counted(counts.events, "event"),
                     shortNumber(static_cast<double>(counts.bytes)), seconds,
                     faults.empty() ? "" : "\n  ", faults);
}

double secondsSince(Clock::time_point begin) {
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

// The figures of the fleet beside those of the worker, for Prometheus.
class Publication {
 public:
  // `metrics` may be null: then this does nothing.
  Publication(const ConsumeOptions& options, WorkerMetrics* metrics, FleetWorker& worker)
      : metrics_(metrics) {
    if (!metrics_) return;
    worker.observe(aggregate_.emplace(options.prometheus->peak));
    Log::instance().say("tev-host: metrics: " + metrics_->url());
  }

  void update(const FleetCounts& counts, Subscription& subscription) {
    if (!metrics_) return;
    std::vector<MetricFamily> families = workerFamilies(counts, subscription.lags());
    std::ranges::move(aggregate_->families(), std::back_inserter(families));
    metrics_->publish(std::move(families));
  }

 private:
  WorkerMetrics* metrics_;
  std::optional<Aggregate> aggregate_;
};

void pollUntilTheEnd(FleetWorker& worker, Subscription& subscription, Publication& publication) {
  constexpr std::chrono::milliseconds kPatience{200};
  Progress progress;
  auto updated = Clock::now();
  while (StopSignal::requests() == 0) {
    subscription.poll(worker, kMostMessages, kPatience);
    if (Clock::now() - updated < kUpdate) continue;
    worker.update();
    progress.show(worker.counts(), subscription, secondsSince(updated));
    publication.update(worker.counts(), subscription);
    updated = Clock::now();
  }
}

// Until the user ends it. A reader that closes the output ends it, too.
void work(FleetWorker& worker, Subscription& subscription, Publication& publication,
          const std::function<FleetCounts()>& counts) {
  const auto begin = Clock::now();
  const auto finish = [&] {
    subscription.close();
    showOnStderr(summaryOf(counts(), secondsSince(begin)));
  };
  try {
    pollUntilTheEnd(worker, subscription, publication);
    worker.update();
  } catch (const ClosedPipe&) {   // the summary says what was read
  } catch (const Interrupted&) {  // the message is read again by the next owner of its partition
  } catch (const RunError&) {
    finish();
    throw;
  }
  finish();
}

void consumeIntoRanges(const ConsumeOptions& options, Subscription& subscription, Intake& intake,
                       WorkerMetrics* metrics) {
  RangeFolder folder(options.output, options.kafka.topic, options.is_forced_out);
  ParquetWorker worker(folder, settledLimits(options, folder), intake, subscription,
                       isWorthAnother);
  Publication publication(options, metrics, worker);
  // What is half written is thrown away.
  work(worker, subscription, publication, [&] { return worker.written(); });
}

void consumeIntoStream(const ConsumeOptions& options, Subscription& subscription, Intake& intake,
                       WorkerMetrics* metrics) {
  const auto sink = makeSink(options);
  StreamWorker worker(*sink, intake, subscription);
  Publication publication(options, metrics, worker);
  work(worker, subscription, publication, [&] { return worker.counts(); });
}

}  // namespace

int consume(const ConsumeOptions& options) {
  const StopSignal stop_signal;
  std::optional<WorkerMetrics> metrics;  // before this joins the group: the port may be in use
  if (options.prometheus) metrics.emplace(options.prometheus->address);
  std::unique_ptr<SchemaShelf> shelf;
  std::unique_ptr<Subscription> subscription;
  try {
    shelf = openKafkaSchemas(options.kafka, hasSchemaId);
    subscription = subscribeToKafka(options.kafka, options.group);
  } catch (const Interrupted&) {  // nothing was read
    return kExitFine;
  }
  return consume(options, *subscription, *shelf, metrics ? &*metrics : nullptr);
}

int consume(const ConsumeOptions& options, Subscription& subscription, SchemaShelf& shelf,
            WorkerMetrics* metrics) {
  SchemaCache schemas(shelf, options.schema_patience);
  Intake intake(schemas);
  if (options.format == ConsumeFormat::parquet)
    consumeIntoRanges(options, subscription, intake, metrics);
  else
    consumeIntoStream(options, subscription, intake, metrics);
  return kExitFine;
}

}  // namespace tev::host
