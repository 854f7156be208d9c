#pragma once

#include <map>
#include <string>

#include "src/device_utils/host_roots.h"

namespace tev::events::multipath {

// The network interface of each RDMA device, by the device's name. A device without an interface is
// missing. If a device has several interfaces, the one with the shortest name is used, and the
// first of these if several are equally short.
using InterfaceNames = std::map<std::string, std::string>;

// Adds the names found in /sys. A failure is logged and does not change the names.
void readInterfaceNames(const common::HostRoots& roots, InterfaceNames& names);

}  // namespace tev::events::multipath
