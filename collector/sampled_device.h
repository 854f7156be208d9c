#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "collector/clock.h"
#include "collector/double_buffer.h"
#include "collector/event_layout.h"
#include "collector/ledger.h"
#include "sdk/vuna_abi.h"
#include "src/support/cache_line.h"

namespace tev::events::multipath {

// What a pass needs for one device: how to read it, and where to store its samples. Devices of
// different sampling threads share no cache line.
struct alignas(support::kCacheLine) SampledDevice {
  // Refused reads since the last successful one.
  struct Refusals {
    std::uint64_t in_a_row = 0;
    Clock::TimePoint since{};
    bool logged = false;             // a line has named this device
    bool logged_as_lasting = false;  // a line has said that the refusals continue
  };

  // What every pass uses stands first, close together.
  vuna_telemetry_mp* context = nullptr;  // borrowed
  std::size_t num_counters = 0;          // that are looked at
  std::uint32_t num_declared = 0;        // that the slot declares
  std::uint8_t slot = 0;
  Refusals refusals;  // used by the sampling thread only
  DeviceLedger ledger;
  DoubleBuffer buffers;  // guarded by the sampler's mutex
  EventLayout device_layout;
  EventLayout plane_layout;
  std::string name;  // of the network interface, or else of the RDMA device
};

}  // namespace tev::events::multipath
