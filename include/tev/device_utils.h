/* The machine's RDMA adapters, read from sysfs and the directory of device nodes. These calls do
 * not open devices and do not keep state. They are for start-up. */
#ifndef TEV_DEVICE_UTILS_H
#define TEV_DEVICE_UTILS_H

#include <stdbool.h>
#include <stddef.h>

#include "tev/export.h"

TEV_C_BEGIN

#define TEV_MAX_HCAS 128
#define TEV_HCA_NAME_LENGTH 20

typedef struct tev_hca_info_t {
  char name[TEV_HCA_NAME_LENGTH + 1];
} tev_hca_info_t;

/* Fills `array` with at most `size` names of adapters, sorted. An empty name ends a shorter list.
 * False when the list cannot be read. */
TEV_API bool tev_fill_hca_info_array(tev_hca_info_t* array, size_t size);

/* Whether /dev/zrd has no device entry. A missing directory counts as not empty. */
TEV_API bool is_zrd_dir_empty(void);

/* Formatted text in a new buffer that the caller frees; null on failure. */
TEV_API char* tev_expand_string_template(const char* format, ...) TEV_PRINTF_FORMAT(1, 2);

TEV_C_END

#ifdef __cplusplus
#include <map>
#include <string>
#include <vector>

namespace tev::common {

/* One adapter. */
struct PortIdentifiers {
  std::string hca_name;    /* as under /sys/class/infiniband */
  std::string zrd_device;  /* its entry in /dev/zrd; empty without one */
  std::string pci_address; /* without the domain when TEV_PCI_ADDRESS_STRIP_DOMAIN is on */
  std::vector<std::string> network_interfaces; /* in the order of the directory */
};

/* Every adapter that has a PCI address, sorted by name. Returns false, with `out` empty, when there
 * are no such adapters. */
TEV_API bool device_utils_get_port_identifiers(std::vector<PortIdentifiers>& out);

/* Adapter name to PCI address. False when the list of adapters cannot be read. */
TEV_API bool device_utils_get_hca_to_pci_address(std::map<std::string, std::string>& out);

}  // namespace tev::common
#endif

#endif
