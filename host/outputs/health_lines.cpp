#include "host/outputs/health_lines.h"

#include <fmt/format.h>

#include <iterator>

#include "host/outputs/json_text.h"

namespace tev::host {

void appendHealthLines(std::string& out, const HealthWatch& health, std::uint64_t now_usec) {
  for (const MissingSamples& one : health.missing()) {
    fmt::format_to(std::back_inserter(out),
                   R"({{"timestamp":{},"type":"missing_samples","device":)", now_usec);
    appendJsonText(out, one.device);
    fmt::format_to(std::back_inserter(out),
                   R"(,"cause":"{}","from":{},"to":{},"missing":{},"reason":)", one.cause,
                   one.from_usec, one.to_usec, one.samples);
    appendJsonText(out, one.reason);
    out += "}\n";
  }
  for (const StateChange& change : health.changes()) {
    if (!isNews(change, health)) continue;
    const DeviceHealth& device = health.devices()[change.device];
    const DeviceCounts& counts = device.counts;
    fmt::format_to(std::back_inserter(out), R"({{"timestamp":{},"type":"device_state","device":)",
                   now_usec);
    appendJsonText(out, counts.device);
    fmt::format_to(
        std::back_inserter(out),
        R"(,"state":"{}","before":"{}","lasted_usec":{},"last_sample":{},"lost":{},"failed":{},"missed":{},"reason":)",
        nameOf(device.state), nameOf(change.before), change.lasted_usec, device.last_sample_usec,
        counts.lost, counts.failed, counts.missed_by_overrun + counts.missed_by_late_wakeup);
    appendJsonText(out, counts.last_failure);
    out += "}\n";
  }
}

}  // namespace tev::host
