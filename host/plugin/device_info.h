#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/events/schema_view.h"
#include "tev/event_provider.h"

namespace tev::host {

// A device that the plug-in's SDK lists. The texts are printable.
struct DeviceInfo {
  std::string name;  // in the events
  std::string rdma_name;
  std::string interface_name;
  bool is_sampled = false;
  std::string reason;  // why it is left out; empty: the reason does not concern this device

  // Of a device that is sampled.
  std::string algorithm;
  std::uint32_t algorithm_id = 0;
  std::uint32_t algorithm_major = 0;
  std::uint32_t algorithm_minor = 0;
  std::uint32_t slot = 0;
  std::uint32_t device_counters = 0;
  std::uint32_t plane_counters = 0;  // of each plane
  std::uint32_t planes = 0;
  std::uint8_t schema_index = 0;
  std::uint16_t device_type = 0;
  std::uint16_t plane_type = 0;
  std::uint64_t buffer_samples = 0;  // in one half of the double buffer
  std::uint64_t buffer_bytes = 0;    // for events, both halves
  std::uint64_t memory_bytes = 0;    // allocated for both halves
};

// In the order of the SDK's list. Nothing when `get` is null, because the plug-in does not describe
// its devices.
std::optional<std::vector<DeviceInfo>> readDeviceInfos(tev_multipath_get_device_info_t get,
                                                       tev_event_provider_t* provider);

// The types of a sampled device's events: of the device and, if it has planes, of the planes.
std::vector<const TypeView*> typesOf(const DeviceInfo& device, const SchemaView& schema);

// The events of one sample, and their bytes with the headers of the blocks.
struct SampleSize {
  std::uint64_t events = 0;
  std::uint64_t bytes = 0;
};
SampleSize sampleSize(const DeviceInfo& device, const SchemaView& schema);

// The link speed in Gbit/s: `given`, or what the kernel reports for the device.
std::optional<double> linkSpeedOf(const DeviceInfo& device, std::optional<double> given);

}  // namespace tev::host
