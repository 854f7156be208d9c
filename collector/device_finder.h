#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "collector/api.h"
#include "collector/device_selection.h"
#include "collector/interface_names.h"
#include "collector/listed_device.h"

namespace tev::events::multipath {

// Finds the devices to be sampled. It opens each device that the SDK lists, finds its name, and
// creates and starts a multipath context on it.
class DeviceFinder {
 public:
  // Called with each device that qualifies. When it returns true, the callee keeps the device and
  // must release it (stop, destroy, close). When it returns false or throws, the finder releases
  // the device. False requires a reason in the last argument.
  using Keep = std::function<bool(vuna_dev*, vuna_telemetry_mp*, ListedDevice&)>;

  // All must outlive the finder.
  DeviceFinder(const Api& api, const DeviceSelection& selection, const InterfaceNames& interfaces)
      : api_(api), selection_(selection), interfaces_(interfaces) {}

  // Visits the devices in the order of the list, and appends each of them to `found`. Devices that
  // are excluded are logged and get a reason.
  void find(std::span<vuna_devinfo* const> listed, std::vector<ListedDevice>& found,
            const Keep& keep) const;

 private:
  void tryDevice(vuna_devinfo* listed, int number, ListedDevice& found, const Keep& keep) const;

  const Api& api_;
  const DeviceSelection& selection_;
  const InterfaceNames& interfaces_;
};

}  // namespace tev::events::multipath
