// Serves the latest figures to Prometheus.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "host/metrics/bus_metrics.h"
#include "host/metrics/exporter.h"
#include "host/metrics/field_metrics.h"
#include "host/metrics/health_metrics.h"
#include "host/metrics/metrics_page.h"
#include "host/metrics/prometheus_options.h"
#include "host/outputs/output.h"

namespace tev::host {

// Throws UsageError when two metrics would have the same name.
void expectDistinctMetrics(const Figures& figures);

// Serves a page, which is empty at first.
class MetricsServer {
 public:
  // Serves from now on. Throws UsageError and RunError.
  explicit MetricsServer(const ListenAddress& address);

  MetricsPage& page() { return page_; }
  const std::string& url() const { return exporter_.url(); }

 private:
  MetricsPage page_;
  Exporter exporter_;  // last, because it uses the page
};

class MetricsOutput final : public Output {
 public:
  using BusState = std::function<BusCounts()>;

  // A device is silent after `silence_usec` without a sample. `bus` may be empty. Throws
  // UsageError. `figures`, and what `bus` uses, must outlive this.
  MetricsOutput(std::unique_ptr<MetricsServer> server, std::chrono::seconds peak,
                const Figures& figures, std::uint64_t silence_usec, BusState bus);

  const Projection* projection() const override { return &figures_.projection(); }
  void begin() override;
  void event(const Event& event, const Series& series) override { fields_.sample(event, series); }
  void update(const RunStatus& status) override { publish(status); }
  void end(const RunStatus& status) override { publish(status); }
  void leave() override { server_.reset(); }

 private:
  void publish(const RunStatus& status);
  double samplingCpuSeconds();

  const Figures& figures_;
  std::uint64_t silence_usec_;
  MetricNames names_;
  HealthMetrics health_;
  FieldMetrics fields_;
  BusState bus_;
  std::map<pid_t, std::uint64_t> sampling_nsec_;  // by thread, also of those that have ended
  std::unique_ptr<MetricsServer> server_;
};

}  // namespace tev::host
