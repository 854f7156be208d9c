#include "host/metrics/metrics_output.h"

#include <unistd.h>

#include <algorithm>
#include <set>
#include <utility>

#include "host/support/log.h"
#include "host/timing/thread_times.h"

namespace tev::host {

void expectDistinctMetrics(const Figures& figures) {
  MetricNames names;
  const HealthMetrics health(figures, names);
  const FieldMetrics fields(figures, PrometheusOptions().peak, names);
}

MetricsOutput::MetricsOutput(const PrometheusOptions& options, const Figures& figures,
                             std::uint64_t silence_usec)
    : figures_(figures),
      silence_usec_(silence_usec),
      health_(figures, names_),
      fields_(figures, options.peak, names_),
      page_(std::chrono::microseconds(silence_usec)),
      exporter_(std::make_unique<Exporter>(
          options.address, [this] { return page_.families(std::chrono::steady_clock::now()); })) {
  threads_ = exporter_->threads();
}

void MetricsOutput::begin() {
  Log::instance().say("tev-host: metrics: " + exporter_->url());
}

void MetricsOutput::publish(const RunStatus& status) {
  std::set<std::string> shown;
  for (const DeviceHealth& device : status.health->devices())
    if (HealthMetrics::isShown(device, status.now_usec, silence_usec_))
      shown.insert(device.counts.device);
  auto snapshot = std::make_shared<MetricsSnapshot>();
  snapshot->fields = fields_.families(status.now_usec, shown);
  snapshot->health = health_.families(status, samplingCpuSeconds(status));
  snapshot->devices = health_.devices(status);
  snapshot->at = std::chrono::steady_clock::now();
  page_.publish(std::move(snapshot));
}

// All threads that are not the host's own belong to the plug-in.
double MetricsOutput::samplingCpuSeconds(const RunStatus& status) {
  for (const auto& [thread, nsec] : threadTimes())
    if (thread != gettid() && thread != status.source_thread &&
        std::ranges::find(threads_, thread) == threads_.end())
      sampling_nsec_[thread] = std::max(sampling_nsec_[thread], nsec);
  std::uint64_t sum = 0;
  for (const auto& [thread, nsec] : sampling_nsec_) sum += nsec;
  return static_cast<double>(sum) / 1e9;
}

}  // namespace tev::host
