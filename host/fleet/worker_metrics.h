// What a worker has done, for Prometheus.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "host/bus/subscription.h"
#include "host/fleet/fleet_counts.h"
#include "host/metrics/exporter.h"
#include "host/metrics/family.h"
#include "host/metrics/listen_address.h"

namespace tev::host {

std::vector<MetricFamily> workerFamilies(const FleetCounts& counts,
                                         const std::vector<PartitionLag>& lags);

// Serves what was published last. One thread publishes.
class WorkerMetrics {
 public:
  // Serves from now on. Throws UsageError and RunError.
  explicit WorkerMetrics(const ListenAddress& address);

  void publish(std::vector<MetricFamily> families);

  const std::string& url() const { return exporter_.url(); }

 private:
  std::mutex mutex_;
  std::shared_ptr<const std::vector<MetricFamily>> latest_ =
      std::make_shared<std::vector<MetricFamily>>();
  Exporter exporter_;  // last, because it uses the others
};

}  // namespace tev::host
