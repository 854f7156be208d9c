#pragma once

#include <optional>
#include <string>

namespace tev::host {

// The speed of a device's link in Gbit/s, as the kernel reports it below `sys` ("/sys"): the sum of
// the ports of the RDMA device or, if it has none, the speed of the network interface. Nothing when
// neither is known. The names may be empty.
std::optional<double> readLinkSpeed(const std::string& sys, const std::string& rdma_name,
                                    const std::string& interface_name);

}  // namespace tev::host
