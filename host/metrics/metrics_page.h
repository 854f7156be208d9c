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
  std::vector<MetricFamily> fields;
  std::vector<MetricFamily> health;
  std::vector<DeviceReport> devices;
};

// The page that scrapes see. One thread publishes, any number of others read.
class MetricsPage {
 public:
  // After this time without an update, what the page says of fields is out of date, and is left
  // out.
  explicit MetricsPage(std::chrono::microseconds silence) : silence_(silence) {}

  void publish(std::shared_ptr<const MetricsSnapshot> snapshot);

  // Empty before the first update.
  std::vector<MetricFamily> families(std::chrono::steady_clock::time_point now) const;

 private:
  std::chrono::microseconds silence_;
  mutable std::mutex mutex_;  // held only to copy the pointer
  std::shared_ptr<const MetricsSnapshot> latest_;
};

}  // namespace tev::host
