#pragma once

#include <cstdint>

#include "host/fleet/intake.h"

namespace tev::host {

// Is told what a worker takes.
class FleetObserver {
 public:
  FleetObserver() = default;
  virtual ~FleetObserver() = default;
  FleetObserver(const FleetObserver&) = delete;
  FleetObserver& operator=(const FleetObserver&) = delete;

  // The events of the message were taken, apart from the first `skipped`. Valid during the call.
  virtual void taken(std::int32_t partition, const MessageHead& head, const Contents& contents,
                     std::uint64_t skipped) = 0;

  // The partition belongs to another worker.
  virtual void revoked(std::int32_t partition) = 0;
};

}  // namespace tev::host
