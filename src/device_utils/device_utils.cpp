#include "tev/device_utils.h"

#include <cstdarg>
#include <cstdio>

#include "src/device_utils/port_identifiers.h"
#include "src/support/guard.h"

using tev::common::HostRoots;
using tev::support::guarded;

bool tev_fill_hca_info_array(tev_hca_info_t* array, std::size_t size) {
  return guarded(__func__, false,
                 [&] { return tev::common::detail::fillHcaInfoArray(HostRoots{}, array, size); });
}

bool is_zrd_dir_empty(void) {
  return guarded(__func__, false, [] { return tev::common::detail::isZrdDirEmpty(HostRoots{}); });
}

char* tev_expand_string_template(const char* format, ...) {
  if (!format) return nullptr;
  va_list arguments;
  va_start(arguments, format);
  char* text = nullptr;
  if (vasprintf(&text, format, arguments) < 0) text = nullptr;
  va_end(arguments);
  return text;
}

namespace tev::common {

bool device_utils_get_port_identifiers(std::vector<PortIdentifiers>& out) {
  return guarded(__func__, false, [&] { return detail::portIdentifiers(HostRoots{}, out); });
}

bool device_utils_get_hca_to_pci_address(std::map<std::string, std::string>& out) {
  return guarded(__func__, false, [&] { return detail::hcaToPciAddress(HostRoots{}, out); });
}

}  // namespace tev::common
