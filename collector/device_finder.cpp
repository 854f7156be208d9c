#include "collector/device_finder.h"

#include <memory>

#include "tev/logger.h"

namespace tev::events::multipath {
namespace {

constexpr std::uint32_t kRdmaNameSize = 64;

// Releases a handle with one of the SDK's functions.
template <auto release>
struct Release {
  const SdkFunctions* sdk;
  template <class Handle>
  void operator()(Handle* handle) const {
    (sdk->*release)(handle);
  }
};

// The handles that are held while a device is being tried. The members are released from the last
// to the first: stop, destroy, close. Each member is set after its step has succeeded.
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

void DeviceFinder::find(std::span<vuna_devinfo* const> listed, std::vector<ListedDevice>& found,
                        const Keep& keep) const {
  for (std::size_t index = 0; index < listed.size(); ++index)
    tryDevice(listed[index], static_cast<int>(index), found.emplace_back(), keep);
}

void DeviceFinder::tryDevice(vuna_devinfo* listed, int number, ListedDevice& found,
                             const Keep& keep) const {
  Held held(api_);

  // A returned handle must be closed even when the open reports a failure.
  vuna_dev* device = nullptr;
  if (listed) {
    if (const auto status = api_.vuna_dev_open(listed, &device))
      found.reason = logReason(TEV_LEVEL_WARNING, "Could not open device #%d: %s", number,
                               api_.errorName(status));
  }
  if (!device) {
    // The status of the open, if there is one, says more.
    const std::string reason = logReason(TEV_LEVEL_WARNING, "Invalid device #%d", number);
    if (found.reason.empty()) found.reason = reason;
    return;
  }
  held.device.reset(device);
  found.reason.clear();  // a handle counts, whatever the status

  vuna_devinfo* const devinfo = api_.vuna_dev_as_devinfo(device);
  if (!devinfo) {
    found.reason = logReason(TEV_LEVEL_WARNING, "Could not get device #%d", number);
    return;
  }

  char rdma_name[kRdmaNameSize] = "";
  if (const auto status = api_.vuna_devinfo_get_ibdev_name(devinfo, rdma_name, sizeof rdma_name)) {
    found.reason = logReason(TEV_LEVEL_WARNING, "Could not get device name of device #%d (%s)",
                             number, api_.errorName(status));
    return;
  }
  rdma_name[sizeof rdma_name - 1] = '\0';
  found.rdma_name = rdma_name;

  if (const auto interface = interfaces_.find(found.rdma_name); interface != interfaces_.end())
    found.interface_name = interface->second;
  else
    TEV_LOG_WARNING(
        "[multipath] No network interface found for RDMA device %s, using ibdev name as fallback",
        rdma_name);
  const char* const name = found.name().c_str();

  if (!selection_.contains(name)) {
    found.reason = logReason(TEV_LEVEL_DEBUG,
                             "Skipping device %s as it is not in the configured device list", name);
    return;
  }

  // A device that was selected by name is tried even if it reports that it is not supported.
  const auto supported = api_.vuna_telemetry_mp_cap_is_supported(devinfo);
  if (supported != kVunaSuccess && selection_.all()) {
    found.reason = logReason(TEV_LEVEL_INFO, "Skipping device %s as it does not support MP: %s",
                             name, api_.errorName(supported));
    return;
  }

  vuna_telemetry_mp* context = nullptr;
  if (const auto status = api_.vuna_telemetry_mp_create(device, &context)) {
    found.reason = logReason(TEV_LEVEL_WARNING, "Could not create vuna context for device %s: %s",
                             name, api_.errorName(status));
    return;
  }
  if (!context) {
    found.reason = logReason(TEV_LEVEL_WARNING, "Invalid MP for device %s", name);
    return;
  }
  held.context.reset(context);

  if (const auto status = api_.vuna_telemetry_mp_start(context)) {
    found.reason = logReason(TEV_LEVEL_WARNING, "Could not start MP for device %s: %s", name,
                             api_.errorName(status));
    return;
  }
  held.running.reset(context);

  if (keep(device, context, found)) held.release();
}

}  // namespace tev::events::multipath
