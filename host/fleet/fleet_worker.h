#pragma once

#include <cstddef>

#include "host/bus/subscription.h"
#include "host/fleet/fleet_counts.h"

namespace tev::host {

// A worker of a group, whatever it does with the messages.
class FleetWorker : public PartitionOwner {
 public:
  // Called again and again between two polls.
  virtual void update() {}

  // Of the messages that this worker has taken, also of those that it has thrown away. Never falls.
  virtual FleetCounts counts() const = 0;

  // Bytes of messages that are kept.
  virtual std::size_t memory() const { return 0; }
};

}  // namespace tev::host
