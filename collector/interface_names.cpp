#include "collector/interface_names.h"

#include <algorithm>
#include <vector>

#include "src/device_utils/port_identifiers.h"
#include "tev/logger.h"

namespace tev::events::multipath {

void readInterfaceNames(const common::HostRoots& roots, InterfaceNames& names) {
  std::vector<common::PortIdentifiers> ports;
  if (!common::detail::portIdentifiers(roots, ports)) {
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
    names[port.hca_name] = shortest;
  }
}

}  // namespace tev::events::multipath
