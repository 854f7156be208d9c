#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <vector>

#include "host/metrics/family.h"
#include "host/metrics/health_metrics.h"

namespace tev::host {

// What was published at an update. Does not change afterwards.
struct MetricsSnapshot {
  std::chrono::steady_clock::time_point at;
  // After this time without an update, what is said of fields is out of date, and is left out.
  std::chrono::duration<double> silence{};
  std::vector<MetricFamily> fields;
  std::vector<MetricFamily> health;
  std::vector<DeviceReport> devices;
};

// The page that scrapes see. One thread publishes, any number of others read.
class MetricsPage {
 public:
  void publish(std::shared_ptr<const MetricsSnapshot> snapshot);

  // Empty before the first update.
  std::vector<MetricFamily> families(std::chrono::steady_clock::time_point now) const;

 private:
  mutable std::mutex mutex_;  // held only to copy the pointer
  std::shared_ptr<const MetricsSnapshot> latest_;
};

}  // namespace tev::host
