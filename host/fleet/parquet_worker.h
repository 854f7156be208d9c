// A worker that writes the messages of its partitions into a folder, each event once.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "host/bus/subscription.h"
#include "host/fleet/fleet_counts.h"
#include "host/fleet/fleet_worker.h"
#include "host/fleet/intake.h"
#include "host/fleet/range.h"
#include "host/fleet/range_folder.h"
#include "host/fleet/sequences.h"
#include "host/fleet/speaker.h"

namespace tev::host {

// Memory: the packed messages of one range for each partition, and the state of its sequences.
class ParquetWorker final : public FleetWorker {
 public:
  // Called when writing has failed, with the time since the first failure. Waits; false: it is not
  // worth going on.
  using Patience = std::function<bool(std::chrono::steady_clock::duration failing)>;

  // The arguments must outlive this.
  ParquetWorker(RangeFolder& folder, const RangeLimits& limits, Intake& intake,
                Subscription& subscription, Patience patience);

  std::optional<std::int64_t> assigned(std::int32_t partition) override;
  void take(const PartitionMessage& message) override;
  void revoked(std::int32_t partition) override;

  FleetCounts counts() const override;
  std::size_t memory() const override;

  // Of these, what is in complete ranges.
  const FleetCounts& written() const { return written_; }

 private:
  struct Partition {
    Sequences sequences;
    std::optional<Range> range;  // nothing until the first message
  };

  void add(Partition& partition, const PartitionMessage& message);
  void closeRange(std::int32_t number, Partition& partition);
  void publish(std::int32_t number, const Partition& partition);

  RangeFolder& folder_;
  RangeLimits limits_;
  Intake& intake_;
  Subscription& subscription_;
  Patience patience_;
  Speaker speaker_;
  std::map<std::int32_t, Partition> partitions_;
  FleetCounts written_;
  FleetCounts thrown_away_;  // of partitions that were revoked
};

}  // namespace tev::host
