#pragma once

#include <cstddef>
#include <cstdint>

#include "host/bus/subscription.h"
#include "host/fleet/fleet_counts.h"
#include "host/fleet/observer.h"
#include "host/fleet/sequences.h"

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

  // From now on, the observer is told of each message that is taken. It must outlive this.
  void observe(FleetObserver& observer) { observer_ = &observer; }

 protected:
  void noteTaken(std::int32_t partition, const MessageHead& head, const Contents& contents,
                 const Arrival& arrival) const {
    if (observer_) observer_->taken(partition, head, contents, arrival.taken);
  }
  void noteRevoked(std::int32_t partition) const {
    if (observer_) observer_->revoked(partition);
  }

 private:
  FleetObserver* observer_ = nullptr;
};

}  // namespace tev::host
