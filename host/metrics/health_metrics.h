// Metrics of the sampling itself.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/figures/figures.h"
#include "host/metrics/family.h"
#include "host/metrics/metric_names.h"
#include "host/outputs/output.h"

namespace tev::host {

// The state of a device at an update.
struct DeviceReport {
  std::shared_ptr<const Labels> labels;
  bool is_up = false;                 // its samples arrive
  std::optional<double> age_seconds;  // of its last sample; nothing: there was none
};

class HealthMetrics {
 public:
  HealthMetrics(const Figures& figures, MetricNames& names);

  // Whether the device's metrics of fields are shown: its last sample is not older than this.
  static bool isShown(const DeviceHealth& device, std::uint64_t now_usec,
                      std::uint64_t silence_usec);

  // What does not change between two updates. `sampling_cpu_seconds` is the CPU time of the
  // plug-in's threads. Totals never fall.
  std::vector<MetricFamily> families(const RunStatus& status, double sampling_cpu_seconds);

  std::vector<DeviceReport> devices(const RunStatus& status);

  // The metrics of these reports after some more seconds. After `silence_seconds` without an
  // update, no device is up.
  static std::vector<MetricFamily> families(const std::vector<DeviceReport>& devices,
                                            double since_seconds, double silence_seconds);

 private:
  struct Device {
    std::shared_ptr<const Labels> labels;
    std::vector<std::shared_ptr<const Labels>> causes;  // as missingCauses()
    std::uint64_t samples = 0;
    std::vector<std::uint64_t> missing;  // as missingCauses()
  };

  Device& deviceNamed(const std::string& name);

  const Figures& figures_;
  std::map<std::string, Device> devices_;
};

}  // namespace tev::host
