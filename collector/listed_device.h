#pragma once

#include <cstdint>
#include <string>

#include "tev/export.h"

namespace tev::events::multipath {

// A device that the SDK lists.
struct ListedDevice {
  std::string rdma_name;       // empty: the SDK did not report it
  std::string interface_name;  // empty: it has no network interface
  std::string reason;          // why it is left out; empty: it is not

  // The name in its events.
  const std::string& name() const { return interface_name.empty() ? rdma_name : interface_name; }
};

// Logs why a device is left out, with the plug-in's tag, and returns the text without the tag.
std::string logReason(std::uint32_t level, const char* format, ...) TEV_PRINTF_FORMAT(2, 3);

}  // namespace tev::events::multipath
