// The outputs of a run: the one that the user sees, and those beside it.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/bus/bus_output.h"
#include "host/capture/capture_output.h"
#include "host/commands/run_options.h"
#include "host/figures/figures.h"
#include "host/metrics/metrics_output.h"
#include "host/outputs/output_file.h"
#include "host/outputs/record_marks.h"
#include "host/plugin/plugin_source.h"
#include "host/timing/jitter.h"

namespace tev::host {

// What a run has before anything is created or sampled.
struct Connections {
  std::unique_ptr<MetricsServer> metrics;  // null: none are served
  std::unique_ptr<Publisher> bus;          // null: the events are not sent
};

// Null when no metrics are served. Throws UsageError and RunError.
std::unique_ptr<MetricsServer> serveMetrics(const RunOptions& options);

// Null when the events are not sent. Waits for the bus. Throws UsageError and RunError.
std::unique_ptr<Publisher> connectToBus(const RunOptions& options);

class RunOutputs {
 public:
  // The arguments must outlive this. Throws UsageError and RunError.
  RunOutputs(const RunOptions& options, const PluginSource& source, const Figures& figures,
             OutputFile& file, bool clear_on_read, Connections connections);

  // In the order in which they get the events.
  const std::vector<Output*>& all() const { return all_; }

  // The one that writes or shows the events.
  Output& written() const { return *written_; }

  // The lines of those beside it, for the summary of the run.
  std::string summary() const;

  // Whether events did not reach the bus.
  bool areUndelivered() const { return bus_ && bus_->undeliveredEvents() > 0; }

 private:
  std::unique_ptr<Output> written_;
  RecordMarks marks_;
  std::unique_ptr<JitterMeter> jitter_;
  std::unique_ptr<CaptureOutput> capture_;
  std::unique_ptr<BusOutput> bus_;
  std::unique_ptr<MetricsOutput> metrics_;
  std::vector<Output*> all_;
};

}  // namespace tev::host
