#include <cctype>
#include <optional>

#include "src/device_utils/port_identifiers.h"
#include "src/support/malloc_ptr.h"
#include "src/support/text.h"
#include "src/support/text_file.h"
#include "tev/logger.h"

namespace tev::common::detail {
namespace {

constexpr std::string_view kAddressKey = "PCI_SLOT_NAME=";
constexpr std::size_t kDomainLength = 4;

// The address in an adapter's uevent file; empty when the file has no address.
std::string readAddress(const std::string& path, const std::string& hca_name) {
  const auto text = support::readFirstLines("device_utils", path);
  if (!text) return {};
  for (const std::string_view line : support::Lines(*text)) {
    if (line.find(kAddressKey) == std::string_view::npos) continue;
    std::string address(line.substr(kAddressKey.size()));
    TEV_LOG_DEBUG("[device_utils] Found %s PCI address - %s", hca_name.c_str(), address.c_str());
    return address;
  }
  return {};
}

// Nothing when the path cannot be formatted; empty when the adapter has no address.
std::optional<std::string> addressOf(const HostRoots& roots, const std::string& hca_name) {
  const support::MallocPtr<char> path(tev_expand_string_template(
      "%s/class/infiniband/%s/device/uevent", roots.sys.c_str(), hca_name.c_str()));
  if (!path) return std::nullopt;
  return readAddress(path.get(), hca_name);
}

}  // namespace

bool isPciDomainStripped() {
  const char* const text = tev_getenv("TEV_PCI_ADDRESS_STRIP_DOMAIN");
  if (!text || !*text) return false;
  const int first = std::tolower(static_cast<unsigned char>(*text));
  return first == '1' || first == 't' || first == 'y';
}

std::string_view withoutPciDomain(std::string_view address) {
  if (address.find(':') != kDomainLength) return address;
  for (const char c : address.substr(0, kDomainLength))
    if (!std::isxdigit(static_cast<unsigned char>(c))) return address;
  return address.substr(kDomainLength + 1);
}

bool hcaToPciAddress(const HostRoots& roots, std::map<std::string, std::string>& out) {
  tev_hca_info_t adapters[TEV_MAX_HCAS];
  if (!fillHcaInfoArray(roots, adapters, TEV_MAX_HCAS)) {
    TEV_LOG_ERROR("[device_utils] Failed to get HCA info");
    return false;
  }
  const bool strip = isPciDomainStripped();
  for (const tev_hca_info_t& adapter : adapters) {
    const std::string hca_name = adapter.name;
    if (hca_name.empty()) break;
    const auto address = addressOf(roots, hca_name);
    if (!address)
      TEV_LOG_WARNING(
          "[device_utils] Could not expand string template to get PCI address for HCA %s",
          hca_name.c_str());
    else if (address->empty())
      TEV_LOG_WARNING("[device_utils] Could not get PCI address for HCA %s", hca_name.c_str());
    else
      out[hca_name] = strip ? withoutPciDomain(*address) : *address;
  }
  return true;
}

}  // namespace tev::common::detail
