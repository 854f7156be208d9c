#include "host/commands/run_outputs.h"

#include <fmt/format.h>

#include <utility>

#include "host/commands/known_options.h"
#include "host/commands/writing.h"
#include "host/kafka/publisher.h"
#include "host/screen/screen_output.h"
#include "host/support/errors.h"
#include "host/support/host_name.h"

namespace tev::host {
namespace {

std::unique_ptr<Output> makeWritten(const RunOptions& options, const Figures& figures,
                                    OutputFile& file) {
  const Projection& projection = figures.projection();
  if (options.full_screen)
    return std::make_unique<ScreenOutput>(projection, figures, options.update, options.symbols);
  return makeWriter(options, projection, figures, file);
}

std::unique_ptr<JitterMeter> makeJitter(const RunOptions& options, const Figures& figures) {
  if (!options.jitter) return nullptr;
  if (figures.intervalUsec() == 0)
    throw UsageError(fmt::format("--jitter needs an interval: {} is 0", kSampleIntervalKey));
  return std::make_unique<JitterMeter>(figures.projection(), figures.intervalUsec());
}

BusCounts countsOf(const BusOutput& bus) {
  const SenderTotals totals = bus.totals();
  return {.events = totals.events,
          .messages = totals.messages,
          .undelivered_events = bus.undeliveredEvents(),
          .refused_events = totals.refused_events,
          .waiting_bytes = bus.waitingBytes(),
          .is_connected = totals.is_connected};
}

// `server` and `bus` may be null.
std::unique_ptr<MetricsOutput> makeMetrics(std::unique_ptr<MetricsServer> server,
                                           const RunOptions& options, const Figures& figures,
                                           const BusOutput* bus) {
  if (!server) return nullptr;
  MetricsOutput::BusState state;
  if (bus) state = [bus] { return countsOf(*bus); };
  return std::make_unique<MetricsOutput>(std::move(server), options.prometheus->peak, figures,
                                         silenceUsec(figures.intervalUsec(), options.update),
                                         std::move(state));
}

CaptureHead headOf(const RunOptions& options, const PluginSource& source,
                   std::uint64_t interval_usec, bool clear_on_read) {
  CaptureHead head;
  head.source = source.name();
  head.writer = "tev-host " TEV_VERSION;
  head.plugin = options.plugin.path;
  head.plugin_version = source.version();
  head.options = options.plugin.options;
  head.host = hostName();
  head.interval_usec = interval_usec;
  head.clear_on_read = clear_on_read;
  return head;
}

std::unique_ptr<BusOutput> makeBus(const RunOptions& options, std::unique_ptr<Publisher> publisher,
                                   CaptureHead head, const Figures& figures) {
  if (!publisher) return nullptr;
  std::unique_ptr<WindowEvents> windows;
  if (const auto length = windowUsec(options)) {
    windows = std::make_unique<WindowEvents>(figures, *length);
    head.interval_usec = *length;
    head.clear_on_read = false;
  }
  return std::make_unique<BusOutput>(options.bus, std::move(publisher), head,
                                     figures.projection().schema(), std::move(windows));
}

}  // namespace

std::unique_ptr<MetricsServer> serveMetrics(const RunOptions& options) {
  if (!options.prometheus) return nullptr;
  return std::make_unique<MetricsServer>(options.prometheus->address);
}

std::unique_ptr<Publisher> connectToBus(const RunOptions& options) {
  if (options.kafka.brokers.empty()) return nullptr;
  return makeKafkaPublisher(options.kafka, options.bus.spool.has_value());
}

RunOutputs::RunOutputs(const RunOptions& options, const PluginSource& source,
                       const Figures& figures, OutputFile& file, bool clear_on_read,
                       Connections connections)
    : written_(makeWritten(options, figures, file)),
      marks_(figures.projection(), file),
      jitter_(makeJitter(options, figures)) {
  const CaptureHead head = headOf(options, source, figures.intervalUsec(), clear_on_read);
  if (options.capture)
    capture_ = std::make_unique<CaptureOutput>(*options.capture, head, source.schema());
  bus_ = makeBus(options, std::move(connections.bus), head, figures);
  metrics_ = makeMetrics(std::move(connections.metrics), options, figures, bus_.get());

  // What a killed run has recorded is in the spool, too. A capture is created before another output
  // empties its file.
  if (bus_) all_.push_back(bus_.get());
  if (capture_) all_.push_back(capture_.get());
  if (!options.full_screen) all_.push_back(&marks_);
  all_.push_back(written_.get());
  if (jitter_) all_.push_back(jitter_.get());
  if (metrics_) all_.push_back(metrics_.get());
}

std::string RunOutputs::summary() const {
  std::string text;
  if (capture_) text += capture_->summary();
  if (bus_) text += bus_->summary();
  if (jitter_) text += jitter_->report();
  return text;
}

}  // namespace tev::host
