#pragma once

#include <string>

namespace tev::common {

// The directories of the kernel's files and the device files. Tests use their own tree.
struct HostRoots {
  std::string sys = "/sys";
  std::string dev = "/dev";
};

}  // namespace tev::common
