// Serves the latest figures to Prometheus.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/metrics/exporter.h"
#include "host/metrics/field_metrics.h"
#include "host/metrics/health_metrics.h"
#include "host/metrics/metrics_page.h"
#include "host/metrics/prometheus_options.h"
#include "host/outputs/output.h"

namespace tev::host {

// Throws UsageError when two metrics would have the same name.
void expectDistinctMetrics(const Figures& figures);

class MetricsOutput final : public Output {
 public:
  // Serves from now on. A device is silent after `silence_usec` without a sample. Throws UsageError
  // and RunError. `figures` must outlive this.
  MetricsOutput(const PrometheusOptions& options, const Figures& figures,
                std::uint64_t silence_usec);

  const Projection* projection() const override { return &figures_.projection(); }
  void begin() override;
  void event(const Event& event, const Series& series) override { fields_.sample(event, series); }
  void update(const RunStatus& status) override { publish(status); }
  void end(const RunStatus& status) override { publish(status); }
  void leave() override { exporter_.reset(); }

  // Threads of the host, which do not sample.
  const std::vector<pid_t>& threads() const { return threads_; }

 private:
  void publish(const RunStatus& status);
  double samplingCpuSeconds(const RunStatus& status);

  const Figures& figures_;
  std::uint64_t silence_usec_;
  MetricNames names_;
  HealthMetrics health_;
  FieldMetrics fields_;
  MetricsPage page_;
  std::vector<pid_t> threads_;
  std::map<pid_t, std::uint64_t> sampling_nsec_;  // by thread, also of those that have ended
  std::unique_ptr<Exporter> exporter_;            // last, because it uses the page
};

}  // namespace tev::host
