#include "simulator/traffic.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

#include "simulator/random.h"

namespace simulator {
namespace {

constexpr double kCycleSeconds = Traffic::kCycleUsec / 1e6;
constexpr double kCongestionSeconds = 10;
constexpr std::uint64_t kPacketBytes = 4096;
constexpr std::uint64_t kMarksPerNotification = 8;

// For a plane at the peak of its congestion: the fraction of its traffic that moves to other
// planes, the fraction of its packets that are marked, and the delay added to its round trip.
constexpr double kMovedPart = 0.65;
constexpr double kMarkedPart = 0.06;
constexpr double kQueueNsec = 70'000;

constexpr double kCalmMarkedPart = 0.0002;
constexpr double kCalmRttNsec = 9'000;

// Noise in [-1, 1). Each value of `what` selects an independent stream.
double noise(std::uint64_t seed, std::uint64_t what, std::uint64_t cell) {
  const std::uint64_t bits = mix(mix(seed + what) + cell) >> 11U;
  return static_cast<double>(bits) * 0x1p-52 - 1;
}

// Offered load at a time of the cycle: about 1, and below 1.3. A cycle is a whole number of periods
// of both waves.
double load(double seconds, std::uint64_t seed, std::uint64_t direction) {
  const double turn = 2 * std::numbers::pi * seconds / kCycleSeconds;
  const double phase = std::numbers::pi * noise(seed, direction, 1);
  return 1 + 0.18 * std::sin(2 * turn + phase) + 0.07 * std::sin(5 * turn + 3 * phase);
}

// The degree of congestion: 0 outside the time of congestion, 1 in the middle of it.
double congestion(double seconds, double start) {
  const double progress = (seconds - start) / kCongestionSeconds;
  if (progress <= 0 || progress >= 1) return 0;
  const double wave = std::sin(std::numbers::pi * progress);
  return std::min(1.0, 1.3 * wave * wave);
}

std::uint64_t whole(double amount) {
  return static_cast<std::uint64_t>(std::max(0.0, amount));
}

// The unit of `part` is 2^-32. The values at a cell's two edges differ by less than 2^32, so that
// the products do not overflow.
std::uint64_t between(std::uint64_t from, std::uint64_t to, std::uint64_t part) {
  return to >= from ? from + ((to - from) * part >> 32U) : from - ((from - to) * part >> 32U);
}

std::uint64_t ofPlane(const Traffic::Plane& plane, Metric metric) {
  switch (metric) {
    case Metric::tx_bytes:
      return plane.tx_bytes;
    case Metric::tx_packets:
      return plane.tx_bytes / kPacketBytes;
    case Metric::ecn_marked:
      return plane.ecn_marked;
    case Metric::cnp_received:
      return plane.ecn_marked / kMarksPerNotification;
    case Metric::path_switches:
      return plane.path_switches;
    case Metric::rtt_usec:
      return plane.rtt_nsec / 1000;
    case Metric::rate_mbps:
      return plane.bytes_per_second / 125'000;
    case Metric::window_kib:
      return plane.bytes_per_second / 1024 * plane.rtt_nsec / 1'000'000'000;
    default:
      return 0;
  }
}

class TrafficSource : public CounterSource {
 public:
  TrafficSource(std::shared_ptr<const Traffic> traffic, std::vector<TrafficColumn> columns)
      : traffic_(std::move(traffic)), columns_(std::move(columns)) {}

  vuna_status read(const Moment& moment, std::uint32_t* values) override {
    const Traffic::State state = traffic_->at(moment.elapsed_usec);
    for (const TrafficColumn& column : columns_)
      *values++ = static_cast<std::uint32_t>(valueOf(state, traffic_->planes(), column));
    return kVunaSuccess;
  }

 private:
  std::shared_ptr<const Traffic> traffic_;
  std::vector<TrafficColumn> columns_;
};

}  // namespace

bool isGauge(Metric metric) {
  return metric == Metric::rtt_usec || metric == Metric::rate_mbps || metric == Metric::window_kib;
}

Traffic::Traffic(const TrafficShape& shape, std::uint64_t seed)
    : planes_(std::min(shape.planes, kMaxPlanes)), edges_(kCells + 1) {
  for (std::size_t cell = 0; cell < kCells; ++cell) addCell(cell, shape, seed);
  // Gauges have the same value at the end of a cycle as at its start.
  for (std::size_t p = 0; p < planes_; ++p) {
    edges_[kCells].planes[p].rtt_nsec = edges_[0].planes[p].rtt_nsec;
    edges_[kCells].planes[p].bytes_per_second = edges_[0].planes[p].bytes_per_second;
  }
}

void Traffic::addCell(std::size_t cell, const TrafficShape& shape, std::uint64_t seed) {
  const State& from = edges_[cell];
  State& to = edges_[cell + 1];
  to.rx_bytes = from.rx_bytes;

  const double cell_seconds = kCellUsec / 1e6;
  const double seconds = static_cast<double>(cell) * cell_seconds;
  const double jam = congestion(seconds, shape.congestion_start_seconds);
  // Flows change planes while congestion begins and ends.
  const double in_transit = jam * (1 - jam) * 4;
  const double sent = shape.mean_bytes_per_second * load(seconds, seed, 1);
  const double received = shape.mean_bytes_per_second * 0.9 * load(seconds, seed, 2);
  const auto plane_count = static_cast<double>(planes_);

  for (std::size_t p = 0; p < planes_; ++p) {
    const bool congested = p == shape.congested_plane;
    const double moved = congested     ? -kMovedPart * jam
                         : planes_ > 1 ? kMovedPart * jam / (plane_count - 1)
                                       : 0;
    const double rate = sent / plane_count * (1 + moved) * (1 + 0.02 * noise(seed, 10 + p, cell));
    const double marked_part = kCalmMarkedPart + (congested ? kMarkedPart * jam : 0);
    const double switches = 4 + in_transit * (congested ? 300 : 60);

    Plane& now = edges_[cell].planes[p];
    now.bytes_per_second = whole(rate);
    now.rtt_nsec = whole(kCalmRttNsec + 3000 * sent / shape.mean_bytes_per_second +
                         (congested ? kQueueNsec * jam : 0) + 800 * noise(seed, 20 + p, cell));
    Plane& next = to.planes[p];
    next.tx_bytes = now.tx_bytes + whole(rate * cell_seconds);
    next.ecn_marked = now.ecn_marked + whole(rate * cell_seconds / kPacketBytes * marked_part *
                                                 (1 + 0.3 * noise(seed, 30 + p, cell)) +
                                             0.5);
    next.path_switches =
        now.path_switches + whole(switches * cell_seconds + 0.5 + 0.5 * noise(seed, 40 + p, cell));
  }
  const double arrived = received * cell_seconds;
  to.rx_bytes = from.rx_bytes + whole(arrived);
  to.rx_ecn_marked =
      from.rx_ecn_marked + whole(arrived / kPacketBytes * (kCalmMarkedPart + 0.01 * jam) + 0.5);
}

Traffic::State Traffic::at(std::uint64_t elapsed_usec) const {
  const std::uint64_t cycles = elapsed_usec / kCycleUsec;
  const std::uint64_t within = elapsed_usec % kCycleUsec;
  const std::uint64_t part = (within % kCellUsec << 32U) / kCellUsec;
  const State& a = edges_[within / kCellUsec];
  const State& b = edges_[within / kCellUsec + 1];
  const State& cycle = edges_[kCells];
  const auto total = [&](const auto& figure) {
    return cycles * figure(cycle) + between(figure(a), figure(b), part);
  };

  State state{};
  state.rx_bytes = total([](const State& s) { return s.rx_bytes; });
  state.rx_ecn_marked = total([](const State& s) { return s.rx_ecn_marked; });
  for (std::size_t p = 0; p < planes_; ++p) {
    Plane& plane = state.planes[p];
    plane.tx_bytes = total([p](const State& s) { return s.planes[p].tx_bytes; });
    plane.ecn_marked = total([p](const State& s) { return s.planes[p].ecn_marked; });
    plane.path_switches = total([p](const State& s) { return s.planes[p].path_switches; });
    plane.rtt_nsec = between(a.planes[p].rtt_nsec, b.planes[p].rtt_nsec, part);
    plane.bytes_per_second = a.planes[p].bytes_per_second;
  }
  return state;
}

std::uint64_t valueOf(const Traffic::State& state, std::size_t planes,
                      const TrafficColumn& column) {
  if (column.plane != kWholeDevice) return ofPlane(state.planes[column.plane], column.metric);
  switch (column.metric) {
    case Metric::rx_bytes:
      return state.rx_bytes;
    case Metric::rx_packets:
      return state.rx_bytes / kPacketBytes;
    case Metric::cnp_sent:
      return state.rx_ecn_marked / kMarksPerNotification;
    default:
      break;
  }
  std::uint64_t sum = 0;
  std::uint64_t greatest = 0;
  for (std::size_t p = 0; p < planes; ++p) {
    const std::uint64_t value = ofPlane(state.planes[p], column.metric);
    sum += value;
    greatest = std::max(greatest, value);
  }
  return column.metric == Metric::rtt_usec ? greatest : sum;
}

std::unique_ptr<CounterSource> makeTrafficSource(std::shared_ptr<const Traffic> traffic,
                                                 std::vector<TrafficColumn> columns) {
  return std::make_unique<TrafficSource>(std::move(traffic), std::move(columns));
}

}  // namespace simulator
