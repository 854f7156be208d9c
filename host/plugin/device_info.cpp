#include "host/plugin/device_info.h"

#include "host/plugin/link_speed.h"
#include "host/support/text.h"
#include "tev/serializer.h"

namespace tev::host {
namespace {

std::string printable(const char* text) {
  return text ? asPrintable(text) : "";
}

DeviceInfo fromRecord(const tev_multipath_device_info_t& record) {
  DeviceInfo device;
  device.name = printable(record.name);
  device.rdma_name = printable(record.rdma_name);
  device.interface_name = printable(record.interface_name);
  device.algorithm = printable(record.algorithm);
  device.is_sampled = record.state == TEV_DEVICE_SAMPLED;
  device.reason = printable(record.reason);
  device.algorithm_id = record.algorithm_id;
  device.algorithm_major = record.algorithm_major;
  device.algorithm_minor = record.algorithm_minor;
  device.slot = record.slot;
  device.device_counters = record.device_counters;
  device.plane_counters = record.plane_counters;
  device.planes = record.planes;
  device.schema_index = static_cast<std::uint8_t>(record.schema_index);
  device.device_type = record.device_type;
  device.plane_type = record.plane_type;
  device.buffer_samples = record.buffer_samples;
  device.buffer_bytes = record.buffer_bytes;
  device.memory_bytes = record.memory_bytes;
  return device;
}

}  // namespace

std::optional<std::vector<DeviceInfo>> readDeviceInfos(tev_multipath_get_device_info_t get,
                                                       tev_event_provider_t* provider) {
  if (!get) return std::nullopt;
  std::vector<DeviceInfo> devices;
  tev_multipath_device_info_t record{};
  while (get(provider, static_cast<std::uint32_t>(devices.size()), &record, sizeof record))
    devices.push_back(fromRecord(record));
  return devices;
}

std::vector<const TypeView*> typesOf(const DeviceInfo& device, const SchemaView& schema) {
  std::vector<const TypeView*> types;
  if (!device.is_sampled) return types;
  const auto add = [&](std::uint16_t index) {
    if (const TypeView* const type = schema.find(device.schema_index, index)) types.push_back(type);
  };
  add(device.device_type);
  if (device.planes > 0) add(device.plane_type);
  return types;
}

SampleSize sampleSize(const DeviceInfo& device, const SchemaView& schema) {
  SampleSize sample;
  std::uint64_t events = 1;
  for (const TypeView* const type : typesOf(device, schema)) {
    sample.events += events;
    sample.bytes += events * (type->size + TEV_EVENT_BLOCK_HEADER_SIZE);
    events = device.planes;
  }
  return sample;
}

std::optional<double> linkSpeedOf(const DeviceInfo& device, std::optional<double> given) {
  if (given) return given;
  // A device without an interface may have the name of one.
  const std::string& interface =
      device.interface_name.empty() ? device.name : device.interface_name;
  return readLinkSpeed("/sys", device.rdma_name, interface);
}

}  // namespace tev::host
