// Traffic over the parallel planes of one adapter, as a pure function of seed and time. The load
// varies. In every cycle one plane is congested: its packets are marked, its round-trip time rises,
// its traffic moves to the other planes, and it recovers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "simulator/counter_source.h"

namespace simulator {

enum class Metric {
  tx_bytes,
  tx_packets,
  ecn_marked,
  cnp_received,
  path_switches,
  rtt_usec,
  rate_mbps,
  window_kib,
  rx_bytes,  // this metric and the next two exist only for a device
  rx_packets,
  cnp_sent
};

// The value of a device is the sum over its planes, or the greatest round-trip time.
inline constexpr std::size_t kWholeDevice = SIZE_MAX;
struct TrafficColumn {
  Metric metric;
  std::size_t plane = kWholeDevice;
};

bool isGauge(Metric metric);

struct TrafficShape {
  std::size_t planes = 4;
  double mean_bytes_per_second = 3e9;
  double congestion_start_seconds = 2;  // within each cycle
  std::size_t congested_plane = 0;
};

class Traffic {
 public:
  static constexpr std::size_t kMaxPlanes = 8;
  static constexpr std::uint64_t kCycleUsec = 30'000'000;

  struct Plane {
    std::uint64_t tx_bytes;
    std::uint64_t ecn_marked;
    std::uint64_t path_switches;
    std::uint64_t rtt_nsec;
    std::uint64_t bytes_per_second;
  };
  struct State {
    Plane planes[kMaxPlanes];
    std::uint64_t rx_bytes;
    std::uint64_t rx_ecn_marked;
  };

  Traffic(const TrafficShape& shape, std::uint64_t seed);

  std::size_t planes() const { return planes_; }
  State at(std::uint64_t elapsed_usec) const;

 private:
  // A cycle is divided into cells. Totals are stored for the edges of the cells and interpolated
  // linearly between them. The last edge is the end of the cycle.
  static constexpr std::size_t kCells = 600;
  static constexpr std::uint64_t kCellUsec = kCycleUsec / kCells;

  void addCell(std::size_t cell, const TrafficShape& shape, std::uint64_t seed);

  std::size_t planes_;
  std::vector<State> edges_;
};

std::uint64_t valueOf(const Traffic::State& state, std::size_t planes, const TrafficColumn& column);

std::unique_ptr<CounterSource> makeTrafficSource(std::shared_ptr<const Traffic> traffic,
                                                 std::vector<TrafficColumn> columns);

}  // namespace simulator
