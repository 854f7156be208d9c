// Which adapters there are, what they are called, and which of them are sampled.

#include <algorithm>
#include <memory>

#include "collector/collector.h"
#include "collector/device_selection.h"
#include "src/device_utils/port_identifiers.h"
#include "tev/logger.h"

namespace tev::events::multipath {
namespace {

constexpr std::uint32_t kRdmaNameSize = 64;

// Gives a handle back through one of the SDK's functions.
template <auto release>
struct Release {
  const SdkFunctions* sdk;
  template <class Handle>
  void operator()(Handle* handle) const {
    (sdk->*release)(handle);
  }
};

// What is held while a device is being tried. Released from the last member to the first: stop,
// destroy, close. Each is set once its step has succeeded.
struct Held {
  std::unique_ptr<vuna_dev, Release<&SdkFunctions::vuna_dev_close>> device;
  std::unique_ptr<vuna_telemetry_mp, Release<&SdkFunctions::vuna_telemetry_mp_destroy>> context;
  std::unique_ptr<vuna_telemetry_mp, Release<&SdkFunctions::vuna_telemetry_mp_stop>> running;

  explicit Held(const SdkFunctions& sdk)
      : device(nullptr, {&sdk}), context(nullptr, {&sdk}), running(nullptr, {&sdk}) {}

  void release() {
    (void)running.release();
    (void)context.release();
    (void)device.release();
  }
};

}  // namespace

void Collector::getRdmaDevNameToNetworkInterfaceMap(std::map<std::string, std::string>& map) {
  std::vector<common::PortIdentifiers> ports;
  if (!common::detail::portIdentifiers(roots_, ports)) {
    TEV_LOG_WARNING("[multipath] Could not get port identifiers");
    return;
  }
  if (ports.empty()) {
    TEV_LOG_WARNING("[multipath] No port identifiers found - cannot get network interfaces");
    return;
  }
  for (const auto& port : ports) {
    const auto& interfaces = port.network_interfaces;
    if (interfaces.empty()) {
      TEV_LOG_WARNING("[multipath] RDMA device %s has no network interfaces",
                      port.hca_name.c_str());
      continue;
    }
    const auto& shortest =
        *std::min_element(interfaces.begin(), interfaces.end(),
                          [](const auto& a, const auto& b) { return a.size() < b.size(); });
    if (interfaces.size() == 1)
      TEV_LOG_DEBUG("[multipath] RDMA device %s mapped to one and only network interface %s",
                    port.hca_name.c_str(), shortest.c_str());
    else
      TEV_LOG_DEBUG("[multipath] RDMA device %s mapped to network interface %s",
                    port.hca_name.c_str(), shortest.c_str());
    map[port.hca_name] = shortest;
  }
}

bool Collector::setDevices(const std::string& devices) {
  const DeviceSelection selection(devices);
  std::map<std::string, std::string> interfaces;
  getRdmaDevNameToNetworkInterfaceMap(interfaces);

  device_list_ = nullptr;
  std::uint32_t count = 0;
  if (const auto status = api_.vuna_devinfo_create_list(&device_list_, &count)) {
    TEV_LOG_DEBUG("[multipath] Failed to create device list: %s", api_.errorName(status));
    device_list_ = nullptr;
    return false;
  }
  if (!device_list_) count = 0;  // whatever the SDK says
  for (std::uint32_t index = 0; index < count; ++index)
    tryDevice(device_list_[index], index, selection, interfaces);
  if (!devices_.empty()) return true;

  if (device_list_) api_.vuna_devinfo_destroy_list(device_list_);
  device_list_ = nullptr;
  TEV_LOG_DEBUG("[multipath] No devices found for MP");
  return false;
}

void Collector::tryDevice(vuna_devinfo* listed, std::uint32_t index,
                          const DeviceSelection& selection,
                          const std::map<std::string, std::string>& interfaces) {
  const auto number = static_cast<int>(index);
  Held held(api_);

  // A handle counts even when the open is said to have failed: it must be closed.
  vuna_dev* device = nullptr;
  if (listed) {
    if (const auto status = api_.vuna_dev_open(listed, &device))
      TEV_LOG_WARNING("[multipath] Could not open device #%d: %s", number, api_.errorName(status));
  }
  if (!device) {
    TEV_LOG_WARNING("[multipath] Invalid device #%d", number);
    return;
  }
  held.device.reset(device);

  vuna_devinfo* const devinfo = api_.vuna_dev_as_devinfo(device);
  if (!devinfo) {
    TEV_LOG_WARNING("[multipath] Could not get device #%d", number);
    return;
  }

  char rdma_name[kRdmaNameSize] = "";
  if (const auto status = api_.vuna_devinfo_get_ibdev_name(devinfo, rdma_name, sizeof rdma_name)) {
    TEV_LOG_WARNING("[multipath] Could not get device name of device #%d (%s)", number,
                    api_.errorName(status));
    return;
  }
  rdma_name[sizeof rdma_name - 1] = '\0';

  std::string name = rdma_name;
  if (const auto interface = interfaces.find(name); interface != interfaces.end())
    name = interface->second;
  else
    TEV_LOG_WARNING(
        "[multipath] No network interface found for RDMA device %s, using ibdev name as fallback",
        rdma_name);

  if (!selection.contains(name)) {
    TEV_LOG_DEBUG("[multipath] Skipping device %s as it is not in the configured device list",
                  name.c_str());
    return;
  }

  // A device that was asked for by name is tried whatever it says of itself.
  const auto supported = api_.vuna_telemetry_mp_cap_is_supported(devinfo);
  if (supported != kVunaSuccess && selection.all()) {
    TEV_LOG_INFO("[multipath] Skipping device %s as it does not support MP: %s", name.c_str(),
                 api_.errorName(supported));
    return;
  }

  vuna_telemetry_mp* context = nullptr;
  if (const auto status = api_.vuna_telemetry_mp_create(device, &context)) {
    TEV_LOG_WARNING("[multipath] Could not create vuna context for device %s: %s", name.c_str(),
                    api_.errorName(status));
    return;
  }
  if (!context) {
    TEV_LOG_WARNING("[multipath] Invalid MP for device %s", name.c_str());
    return;
  }
  held.context.reset(context);

  if (const auto status = api_.vuna_telemetry_mp_start(context)) {
    TEV_LOG_WARNING("[multipath] Could not start MP for device %s: %s", name.c_str(),
                    api_.errorName(status));
    return;
  }
  held.running.reset(context);

  DevCtx dev(device, context, std::move(name));
  if (!setActiveAlgoSlotInfo(dev)) {
    TEV_LOG_WARNING("[multipath] Could not set active algo slot info for device %s",
                    dev.name.c_str());
    return;
  }
  devices_.push_back(std::move(dev));
  held.release();  // from here on the collector gives the device back, in the same order
}

}  // namespace tev::events::multipath
