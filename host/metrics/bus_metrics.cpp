#include "host/metrics/bus_metrics.h"

namespace tev::host {

std::vector<MetricFamily> busFamilies(const BusCounts& counts) {
  const auto one = [](const char* name, MetricType type, const char* help, auto value) {
    return MetricFamily{name, help, type, {{nullptr, static_cast<double>(value)}}};
  };
  return {
      one("tev_bus_events_total", MetricType::counter, "Events that the message bus keeps.",
          counts.events),
      one("tev_bus_messages_total", MetricType::counter, "Messages that the message bus keeps.",
          counts.messages),
      one("tev_bus_undelivered_events_total", MetricType::counter,
          "Events that did not reach the message bus, and were given up.",
          counts.undelivered_events),
      one("tev_bus_refused_events_total", MetricType::counter,
          "Undelivered events that the message bus does not take.", counts.refused_events),
      one("tev_bus_connected", MetricType::gauge,
          "1 when a server of the message bus can be reached, as far as is known, else 0.",
          counts.is_connected),
      one("tev_bus_waiting_bytes", MetricType::gauge,
          "Bytes that wait for the message bus: event blocks in memory, or the files of the spool.",
          counts.waiting_bytes),
  };
}

void claimBusNames(MetricNames& names) {
  for (const MetricFamily& one : busFamilies({})) names.claim(one.name, "the message bus");
}

}  // namespace tev::host
