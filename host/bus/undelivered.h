// Counts the samples that did not reach the bus.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "host/bus/message.h"
#include "host/events/event_source.h"
#include "host/events/schema_view.h"

namespace tev::host {

// May be used by several threads.
class Undelivered {
 public:
  // Of a batch that is given up.
  void add(const Batch& batch);

  // Adds the samples to the counts of their devices.
  void addTo(std::vector<DeviceCounts>& counts) const;

  std::uint64_t events() const;

 private:
  mutable std::mutex mutex_;
  std::map<std::vector<std::string>, SchemaView> schemas_;  // by their ids
  std::map<std::string, std::uint64_t> samples_;            // by device
  std::uint64_t events_ = 0;
};

}  // namespace tev::host
