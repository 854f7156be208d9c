// The adapter look-ups behind tev/device_utils.h, below roots of the caller's choice.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "src/device_utils/host_roots.h"
#include "tev/device_utils.h"

namespace tev::common::detail {

bool fillHcaInfoArray(const HostRoots& roots, tev_hca_info_t* array, std::size_t size);

// Adds to `out`, in which a later adapter of the same name overwrites.
bool hcaToPciAddress(const HostRoots& roots, std::map<std::string, std::string>& out);

bool isZrdDirEmpty(const HostRoots& roots);

// Adapter name to the name of its entry in the device-node folder, for those that have one.
std::map<std::string, std::string> hcaToZrdDevice(
    const HostRoots& roots, const std::map<std::string, std::string>& hca_to_pci_address);

bool portIdentifiers(const HostRoots& roots, std::vector<PortIdentifiers>& out);

// TEV_PCI_ADDRESS_STRIP_DOMAIN.
bool isPciDomainStripped();

// "0000:3b:00.0" without its domain; any other form as it is.
std::string_view withoutPciDomain(std::string_view address);

}  // namespace tev::common::detail
