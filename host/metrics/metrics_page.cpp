#include "host/metrics/metrics_page.h"

#include <utility>

namespace tev::host {

void MetricsPage::publish(std::shared_ptr<const MetricsSnapshot> snapshot) {
  const std::lock_guard lock(mutex_);
  latest_.swap(snapshot);  // the old one is released after the lock, if no scrape uses it
}

std::vector<MetricFamily> MetricsPage::families(std::chrono::steady_clock::time_point now) const {
  std::shared_ptr<const MetricsSnapshot> snapshot;
  {
    const std::lock_guard lock(mutex_);
    snapshot = latest_;
  }
  if (!snapshot) return {};
  const double since = std::chrono::duration<double>(now - snapshot->at).count();
  const double silence = snapshot->silence.count();
  std::vector<MetricFamily> families = HealthMetrics::families(snapshot->devices, since, silence);
  families.insert(families.end(), snapshot->health.begin(), snapshot->health.end());
  if (since <= silence)
    families.insert(families.end(), snapshot->fields.begin(), snapshot->fields.end());
  return families;
}

}  // namespace tev::host
