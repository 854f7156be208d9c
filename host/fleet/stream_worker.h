// A worker that writes the messages of its partitions at once, each event at least once.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>

#include "host/bus/subscription.h"
#include "host/fleet/fleet_worker.h"
#include "host/fleet/intake.h"
#include "host/fleet/sequences.h"
#include "host/fleet/sink.h"
#include "host/fleet/speaker.h"

namespace tev::host {

class StreamWorker final : public FleetWorker {
 public:
  // The arguments must outlive this.
  StreamWorker(Sink& sink, Intake& intake, Subscription& subscription)
      : sink_(sink), intake_(intake), subscription_(subscription) {}

  std::optional<std::int64_t> assigned(std::int32_t partition) override;
  void take(const PartitionMessage& message) override;
  void revoked(std::int32_t partition) override;

  // Commits what is written.
  void update() override;

  FleetCounts counts() const override { return counts_; }

 private:
  struct Partition {
    Sequences sequences;
    std::optional<std::int64_t> next;  // offset
    bool is_committed = true;
  };

  void write(Partition& partition, const PartitionMessage& message);

  Sink& sink_;
  Intake& intake_;
  Subscription& subscription_;
  Speaker speaker_;
  std::map<std::int32_t, Partition> partitions_;
  FleetCounts counts_;
};

}  // namespace tev::host
