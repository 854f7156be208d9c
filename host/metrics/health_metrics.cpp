#include "host/metrics/health_metrics.h"

#include <time.h>

#include <algorithm>

#include "host/timing/clock_reading.h"

namespace tev::host {
namespace {

constexpr char kDeviceLabel[] = "device";

MetricFamily upFamily() {
  return {"tev_up", "1 when samples of the device arrive, else 0.", MetricType::gauge, {}};
}
MetricFamily ageFamily() {
  return {"tev_last_sample_age_seconds",
          "Time since the last sample of the device was taken.",
          MetricType::gauge,
          {}};
}
MetricFamily samplesFamily() {
  return {"tev_samples_total", "Samples of the device that have arrived.", MetricType::counter, {}};
}
MetricFamily missingFamily() {
  return {"tev_missing_samples_total",
          "Samples of the device that are missing, by cause.",
          MetricType::counter,
          {}};
}
MetricFamily fetchesFamily() {
  return {"tev_fetches_total", "Fetches of samples from the plug-in.", MetricType::counter, {}};
}
MetricFamily fetchSecondsFamily() {
  return {"tev_fetch_seconds_total",
          "Time that tev-host has waited for the plug-in to deliver.",
          MetricType::counter,
          {}};
}
MetricFamily samplingCpuFamily() {
  return {"tev_sampling_cpu_seconds_total",
          "CPU time of the plug-in's threads, which read the devices.",
          MetricType::counter,
          {}};
}
MetricFamily cpuFamily() {
  return {"process_cpu_seconds_total", "CPU time of the whole process.", MetricType::counter, {}};
}

}  // namespace

HealthMetrics::HealthMetrics(const Figures& figures, MetricNames& names) : figures_(figures) {
  for (const MetricFamily& one :
       {upFamily(), ageFamily(), samplesFamily(), missingFamily(), fetchesFamily(),
        fetchSecondsFamily(), samplingCpuFamily(), cpuFamily()})
    names.claim(one.name, "the health of the sampling");
}

bool HealthMetrics::isShown(const DeviceHealth& device, std::uint64_t now_usec,
                            std::uint64_t silence_usec) {
  return device.state == DeviceState::sampling ||
         (device.arrived_usec > 0 && device.state != DeviceState::silent &&
          device.ageUsec(now_usec) <= silence_usec);
}

HealthMetrics::Device& HealthMetrics::deviceNamed(const std::string& name) {
  Device& device = devices_[name];
  if (device.labels) return device;
  const Labels labels{{kDeviceLabel, name}};
  device.labels = std::make_shared<const Labels>(labels);
  for (const MissingCause& cause : missingCauses()) {
    Labels with_cause = labels;
    with_cause.emplace_back("cause", cause.name);
    device.causes.push_back(std::make_shared<const Labels>(std::move(with_cause)));
    device.missing.push_back(0);
  }
  return device;
}

std::vector<MetricFamily> HealthMetrics::families(const RunStatus& status,
                                                  double sampling_cpu_seconds) {
  // A sample of a device is an event of each of its series.
  for (const SeriesFigures& one : figures_.all())
    if (one.series) {
      Device& device = deviceNamed(one.series->device);
      device.samples = std::max(device.samples, one.samples);
    }
  MetricFamily samples = samplesFamily();
  MetricFamily missing = missingFamily();
  for (const DeviceHealth& health : status.health->devices()) {
    Device& device = deviceNamed(health.counts.device);
    samples.metrics.push_back({device.labels, static_cast<double>(device.samples)});
    if (!status.health->areCounted()) continue;
    for (std::size_t i = 0; i < device.causes.size(); ++i) {
      std::uint64_t& count = device.missing[i];
      count = std::max(count, health.counts.*missingCauses()[i].count);
      missing.metrics.push_back({device.causes[i], static_cast<double>(count)});
    }
  }
  MetricFamily fetches = fetchesFamily();
  fetches.metrics.push_back({nullptr, static_cast<double>(status.fetches)});
  MetricFamily fetch_seconds = fetchSecondsFamily();
  fetch_seconds.metrics.push_back({nullptr, status.fetch_seconds});
  MetricFamily sampling_cpu = samplingCpuFamily();
  sampling_cpu.metrics.push_back({nullptr, sampling_cpu_seconds});
  MetricFamily cpu = cpuFamily();
  cpu.metrics.push_back({nullptr, static_cast<double>(nowNsec(CLOCK_PROCESS_CPUTIME_ID)) / 1e9});
  return {samples, missing, fetches, fetch_seconds, sampling_cpu, cpu};
}

std::vector<DeviceReport> HealthMetrics::devices(const RunStatus& status) {
  std::vector<DeviceReport> reports;
  for (const DeviceHealth& health : status.health->devices()) {
    DeviceReport& report = reports.emplace_back();
    report.labels = deviceNamed(health.counts.device).labels;
    report.is_up = health.state == DeviceState::sampling;
    if (health.last_sample_usec == 0) continue;
    const std::uint64_t now = std::max(status.now_usec, health.last_sample_usec);
    report.age_seconds = static_cast<double>(now - health.last_sample_usec) / 1e6;
  }
  return reports;
}

std::vector<MetricFamily> HealthMetrics::families(const std::vector<DeviceReport>& devices,
                                                  double since_seconds, double silence_seconds) {
  MetricFamily up = upFamily();
  MetricFamily age = ageFamily();
  const bool is_fresh = since_seconds <= silence_seconds;
  for (const DeviceReport& device : devices) {
    up.metrics.push_back({device.labels, device.is_up && is_fresh ? 1.0 : 0.0});
    if (device.age_seconds)
      age.metrics.push_back({device.labels, *device.age_seconds + since_seconds});
  }
  return {up, age};
}

}  // namespace tev::host
