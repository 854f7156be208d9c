#include <string>

#include "simulator/random.h"
#include "simulator/scenario.h"
#include "simulator/traffic.h"

namespace simulator {
namespace {

struct Described {
  Metric metric;
  const char* name;
  const char* description;
};

// Two counter sets, for two generations of adapters.
const std::vector<Described> kFullDevice = {
    {Metric::tx_bytes, "tx_bytes", "transmitted bytes"},
    {Metric::tx_packets, "tx_packets", "transmitted packets"},
    {Metric::rx_bytes, "rx_bytes", "received bytes"},
    {Metric::rx_packets, "rx_packets", "received packets"},
    {Metric::ecn_marked, "ecn_marked", "transmitted packets that were ECN-marked on their way"},
    {Metric::cnp_received, "cnp_received", "received congestion notification packets"},
    {Metric::cnp_sent, "cnp_sent", "sent congestion notification packets"},
    {Metric::path_switches, "path_switches", "flows moved from one path to another"},
};
const std::vector<Described> kFullPlane = {
    {Metric::tx_bytes, "tx_bytes", "transmitted bytes"},
    {Metric::tx_packets, "tx_pkts", "transmitted packets"},
    {Metric::ecn_marked, "ecn_marked", "transmitted packets that were ECN-marked on their way"},
    {Metric::cnp_received, "cnp_rcvd", "received congestion notification packets"},
    {Metric::rtt_usec, "rtt_us", "round-trip time in microseconds"},
    {Metric::rate_mbps, "rate_mbps", "sending rate in Mbit/s"},
    {Metric::path_switches, "path_switches", "flows moved away from the plane"},
};
const std::vector<Described> kSmallDevice = {
    {Metric::tx_bytes, "tx_bytes", "transmitted bytes"},
    {Metric::rx_bytes, "rx_bytes", "received bytes"},
    {Metric::cnp_received, "cnp_received", "received congestion notification packets"},
    {Metric::rtt_usec, "rtt_max_us", "greatest round-trip time of any path in microseconds"},
};
const std::vector<Described> kSmallPlane = {
    {Metric::tx_bytes, "tx_bytes", "transmitted bytes"},
    {Metric::ecn_marked, "ecn_marked", "transmitted packets that were ECN-marked on their way"},
    {Metric::rtt_usec, "rtt_us", "round-trip time in microseconds"},
    {Metric::window_kib, "window_kib", "congestion window in KiB"},
};

void addCounters(const std::vector<Described>& counters, std::size_t plane, Slot& slot,
                 std::vector<TrafficColumn>& columns) {
  for (const Described& counter : counters) {
    std::string text = std::string(counter.name) + ", " + counter.description;
    if (plane != kWholeDevice) text += ", plane " + std::to_string(plane);
    slot.counters.push_back({std::move(text), !isGauge(counter.metric)});
    columns.push_back({counter.metric, plane});
  }
}

Slot trafficSlot(const TrafficShape& shape, std::uint64_t seed,
                 const std::vector<Described>& device, const std::vector<Described>& plane) {
  Slot slot;
  std::vector<TrafficColumn> columns;
  addCounters(device, kWholeDevice, slot, columns);
  for (std::size_t p = 0; p < shape.planes; ++p) addCounters(plane, p, slot, columns);
  deriveNumbers(slot);
  slot.make_source = [traffic = std::make_shared<const Traffic>(shape, seed),
                      columns = std::move(columns)] { return makeTrafficSource(traffic, columns); };
  return slot;
}

Slot named(Slot slot, std::uint32_t algo_id, std::uint32_t major, std::uint32_t minor,
           const char* info) {
  slot.algo_id = algo_id;
  slot.major_version = major;
  slot.minor_version = minor;
  slot.info = info;
  return slot;
}

Slot emptySlot() {
  Slot slot;
  slot.id_status = kVunaSlotEmpty;
  return slot;
}

Slot invalidSlot() {
  Slot slot;
  slot.enable_status = kVunaSlotInvalid;
  return slot;
}

Slot disabledSlot() {
  Slot slot;
  slot.algo_enabled = false;
  slot.counters_enabled = false;
  return named(std::move(slot), 3, 1, 0, "fixed spraying, switched off");
}

Device adapter(const char* name, std::vector<Slot> slots) {
  Device device;
  device.ibdev_name = name;
  device.slots = std::move(slots);
  deriveMaxima(device);
  return device;
}

}  // namespace

std::vector<Device> defaultDevices(std::uint64_t seed) {
  constexpr const char* kInfo = "plane-aware congestion control by ECN marks and round-trip time";
  // Below 34 Gbit/s, so that a 32-bit byte counter wraps at most once per second.
  const TrafficShape first{4, 2.9e9, 2, 1};
  const TrafficShape second{4, 2.2e9, 9, 2};
  const TrafficShape third{2, 1.4e9, 16, 0};
  const Slot full = trafficSlot(first, mix(seed), kFullDevice, kFullPlane);
  const Slot other = trafficSlot(second, mix(seed + 1), kFullDevice, kFullPlane);
  const Slot small = trafficSlot(third, mix(seed + 2), kSmallDevice, kSmallPlane);

  std::vector<Device> devices;
  devices.push_back(adapter("rdma0", {emptySlot(), named(full, 17, 2, 3, kInfo)}));
  devices.push_back(
      adapter("rdma1", {invalidSlot(), disabledSlot(), named(other, 17, 2, 3, kInfo)}));
  devices.push_back(adapter("rdma2", {emptySlot(), emptySlot(), disabledSlot(),
                                      named(small, 9, 1, 8, "window-based congestion control")}));
  return devices;
}

}  // namespace simulator
