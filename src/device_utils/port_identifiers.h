// The functions behind tev/device_utils.h, with root directories that the caller chooses.
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

// Adds to `out`. A later adapter of the same name replaces an earlier one.
bool hcaToPciAddress(const HostRoots& roots, std::map<std::string, std::string>& out);

bool isZrdDirEmpty(const HostRoots& roots);

// Adapter name to the name of its entry in the directory of device nodes, for adapters that have
// one.
std::map<std::string, std::string> hcaToZrdDevice(
    const HostRoots& roots, const std::map<std::string, std::string>& hca_to_pci_address);

bool portIdentifiers(const HostRoots& roots, std::vector<PortIdentifiers>& out);

// TEV_PCI_ADDRESS_STRIP_DOMAIN.
bool isPciDomainStripped();

// Removes the domain from an address like "0000:3b:00.0". Text of any other form is not changed.
std::string_view withoutPciDomain(std::string_view address);

}  // namespace tev::common::detail
