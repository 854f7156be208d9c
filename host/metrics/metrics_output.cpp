#include "host/metrics/metrics_output.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <utility>

#include "host/support/log.h"
#include "host/timing/thread_times.h"

namespace tev::host {

void expectDistinctMetrics(const Figures& figures) {
  MetricNames names;
  const HealthMetrics health(figures, names);
  const FieldMetrics fields(figures, PrometheusOptions().peak, names);
  claimBusNames(names);
}

MetricsServer::MetricsServer(const ListenAddress& address)
    : exporter_(address, [this] { return page_.families(std::chrono::steady_clock::now()); }) {}

MetricsOutput::MetricsOutput(std::unique_ptr<MetricsServer> server, std::chrono::seconds peak,
                             const Figures& figures, std::uint64_t silence_usec, BusState bus)
    : figures_(figures),
      silence_usec_(silence_usec),
      health_(figures, names_),
      fields_(figures, peak, names_),
      bus_(std::move(bus)),
      server_(std::move(server)) {
  claimBusNames(names_);
}

void MetricsOutput::begin() {
  Log::instance().say("tev-host: metrics: " + server_->url());
}

void MetricsOutput::publish(const RunStatus& status) {
  std::set<std::string> shown;
  for (const DeviceHealth& device : status.health->devices())
    if (HealthMetrics::isShown(device, status.now_usec, silence_usec_))
      shown.insert(device.counts.device);
  auto snapshot = std::make_shared<MetricsSnapshot>();
  snapshot->fields = fields_.families(status.now_usec, shown);
  snapshot->health = health_.families(status, samplingCpuSeconds());
  if (bus_) std::ranges::move(busFamilies(bus_()), std::back_inserter(snapshot->health));
  snapshot->devices = health_.devices(status);
  snapshot->at = std::chrono::steady_clock::now();
  snapshot->silence = std::chrono::microseconds(silence_usec_);
  server_->page().publish(std::move(snapshot));
}

double MetricsOutput::samplingCpuSeconds() {
  for (const auto& [thread, nsec] : pluginThreadTimes())
    sampling_nsec_[thread] = std::max(sampling_nsec_[thread], nsec);
  std::uint64_t sum = 0;
  for (const auto& [thread, nsec] : sampling_nsec_) sum += nsec;
  return static_cast<double>(sum) / 1e9;
}

}  // namespace tev::host
