#include "src/device_utils/port_identifiers.h"

#include <boost/algorithm/string/join.hpp>
#include <boost/filesystem/directory.hpp>
#include <boost/filesystem/operations.hpp>
#include <utility>

#include "src/support/malloc_ptr.h"
#include "tev/logger.h"

namespace tev::common::detail {
namespace {

namespace fs = boost::filesystem;

// After an error, the interfaces found so far remain in `interfaces`.
void listFolder(const char* path, const std::string& hca_name,
                std::vector<std::string>& interfaces) {
  if (!fs::exists(path)) {
    TEV_LOG_DEBUG(
        "[device_utils] Network interfaces directory does not exist: %s. This is expected for IB "
        "devices",
        path);
    return;
  }
  for (const auto& entry : fs::directory_iterator(path)) {
    interfaces.push_back(entry.path().filename().string());
    TEV_LOG_DEBUG("[device_utils] Found %s network interface - %s", hca_name.c_str(),
                  interfaces.back().c_str());
  }
}

std::vector<std::string> networkInterfaces(const HostRoots& roots, const std::string& hca_name) {
  std::vector<std::string> interfaces;
  const support::MallocPtr<char> path(tev_expand_string_template(
      "%s/class/infiniband/%s/device/net", roots.sys.c_str(), hca_name.c_str()));
  if (!path) {
    TEV_LOG_WARNING(
        "[device_utils] Could not expand string template to get network interfaces for HCA %s",
        hca_name.c_str());
    return interfaces;
  }
  try {
    listFolder(path.get(), hca_name, interfaces);
  } catch (const fs::filesystem_error& error) {
    TEV_LOG_WARNING("[device_utils] Could not get network interfaces for HCA %s: %s",
                    hca_name.c_str(), error.what());
  }
  return interfaces;
}

void logFound(const std::vector<PortIdentifiers>& found) {
  TEV_LOG_DEBUG("[device_utils] Found %zu devices with identifiers", found.size());
  for (const PortIdentifiers& port : found)
    TEV_LOG_DEBUG("[device_utils]   HCA=%s, PCI address=%s, ZRD device=%s, network interface=%s",
                  port.hca_name.c_str(), port.pci_address.c_str(), port.zrd_device.c_str(),
                  boost::algorithm::join(port.network_interfaces, ",").c_str());
}

}  // namespace

bool portIdentifiers(const HostRoots& roots, std::vector<PortIdentifiers>& out) {
  out.clear();
  std::map<std::string, std::string> hca_to_pci_address;
  if (!hcaToPciAddress(roots, hca_to_pci_address)) return false;
  const auto hca_to_zrd_device = hcaToZrdDevice(roots, hca_to_pci_address);

  std::vector<PortIdentifiers> found;
  for (const auto& [hca_name, pci_address] : hca_to_pci_address) {
    const auto zrd_device = hca_to_zrd_device.find(hca_name);
    found.push_back({hca_name,
                     zrd_device != hca_to_zrd_device.end() ? zrd_device->second : std::string(),
                     pci_address, networkInterfaces(roots, hca_name)});
  }
  if (found.empty()) {
    TEV_LOG_ERROR("[device_utils] No valid devices found");
    return false;
  }
  logFound(found);
  out = std::move(found);
  return true;
}

}  // namespace tev::common::detail
