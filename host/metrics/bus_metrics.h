// Metrics of the delivery of events to a message bus.
#pragma once

#include <cstdint>
#include <vector>

#include "host/metrics/family.h"
#include "host/metrics/metric_names.h"

namespace tev::host {

struct BusCounts {
  std::uint64_t events = 0;  // that the bus keeps
  std::uint64_t messages = 0;
  std::uint64_t undelivered_events = 0;  // that were given up
  std::uint64_t refused_events = 0;      // of these, those that the bus does not take
  std::uint64_t waiting_bytes = 0;       // in memory, or in the spool
  bool is_connected = false;
};

std::vector<MetricFamily> busFamilies(const BusCounts& counts);

// Throws UsageError when the names belong to others already.
void claimBusNames(MetricNames& names);

}  // namespace tev::host
