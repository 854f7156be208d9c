#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <boost/filesystem/directory.hpp>
#include <boost/filesystem/operations.hpp>
#include <memory>

#include "src/device_utils/port_identifiers.h"
#include "src/support/text.h"
#include "src/support/text_file.h"
#include "tev/logger.h"

namespace tev::common::detail {
namespace {

namespace fs = boost::filesystem;

using NameMap = std::map<std::string, std::string>;

constexpr std::string_view kDevicePrefix = "qz";
constexpr std::string_view kAddressKey = "domain:bus:dev.fn=";
constexpr std::size_t kAddressLength = 12;
constexpr std::size_t kMaxDeviceTextBytes = std::size_t{1} << 20;

std::string folder(const HostRoots& roots) {
  return roots.dev + "/zrd";
}

struct CloseFolder {
  void operator()(DIR* folder) const noexcept { closedir(folder); }
};
using FolderPtr = std::unique_ptr<DIR, CloseFolder>;

// Some file systems do not store an entry's type in the directory.
bool isDeviceOrLink(DIR* folder, const dirent& entry) {
  if (entry.d_type != DT_UNKNOWN) return entry.d_type == DT_CHR || entry.d_type == DT_LNK;
  struct stat status {};
  if (fstatat(dirfd(folder), entry.d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) return false;
  return S_ISCHR(status.st_mode) || S_ISLNK(status.st_mode);
}

// When two adapters have the same address, the later name is used.
NameMap inverted(const NameMap& hca_to_pci_address) {
  NameMap pci_address_to_hca;
  for (const auto& [hca_name, address] : hca_to_pci_address) pci_address_to_hca[address] = hca_name;
  return pci_address_to_hca;
}

// The open directory of device nodes.
struct Search {
  const NameMap& pci_address_to_hca;
  bool strip;
  NameMap found;

  void readLine(std::string_view line, const std::string& device) {
    const auto key = line.find(kAddressKey);
    if (key == std::string_view::npos) return;
    std::string address(line.substr(key + kAddressKey.size(), kAddressLength));
    if (strip) address = withoutPciDomain(address);
    const auto hca = pci_address_to_hca.find(address);
    if (hca == pci_address_to_hca.end()) {
      TEV_LOG_DEBUG("[device_utils] Found %s ZRD device - but no HCA with such PCI address",
                    address.c_str());
      return;
    }
    found[hca->second] = device;
    TEV_LOG_DEBUG("[device_utils] Found %s ZRD device - %s", hca->second.c_str(), device.c_str());
  }

  void readEntry(const fs::path& entry) {
    const std::string device = entry.filename().string();
    if (!device.starts_with(kDevicePrefix)) return;
    const auto text = support::readFirstLines("device_utils", entry.string(), kMaxDeviceTextBytes);
    if (!text) return;
    for (const std::string_view line : support::Lines(*text)) readLine(line, device);
  }

  void readFolder(const std::string& path) {
    boost::system::error_code error;
    fs::directory_iterator entry(path, error);
    for (; !error && entry != fs::directory_iterator(); entry.increment(error)) readEntry(*entry);
    if (error)
      TEV_LOG_WARNING("[device_utils] Could not read /dev/zrd: %s", error.message().c_str());
  }
};

}  // namespace

bool isZrdDirEmpty(const HostRoots& roots) {
  const FolderPtr entries(opendir(folder(roots).c_str()));
  if (!entries) {
    TEV_LOG_INFO("[device_utils] /dev/zrd is empty or does not exist");
    return false;  // callers expect that a missing directory is not empty
  }
  while (const dirent* entry = readdir(entries.get())) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != ".." && isDeviceOrLink(entries.get(), *entry)) return false;
  }
  return true;
}

NameMap hcaToZrdDevice(const HostRoots& roots, const NameMap& hca_to_pci_address) {
  const NameMap pci_address_to_hca = inverted(hca_to_pci_address);
  if (isZrdDirEmpty(roots)) {
    TEV_LOG_INFO("[device_utils] No devices in /dev/zrd. Cannot map HCA to ZRD devices");
    return {};
  }
  Search search{pci_address_to_hca, isPciDomainStripped(), {}};
  boost::system::error_code ignored;
  if (!fs::exists(folder(roots), ignored)) {
    TEV_LOG_INFO(
        "[device_utils] ZRD root directory does not exist: /dev/zrd. Cannot map HCA to ZRD "
        "devices");
    return {};
  }
  search.readFolder(folder(roots));
  return std::move(search.found);
}

}  // namespace tev::common::detail
