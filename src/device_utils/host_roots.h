#pragma once

#include <string>

namespace tev::common {

// Where the kernel's and the device files are found; tests hand in a tree of their own.
struct HostRoots {
  std::string sys = "/sys";
  std::string dev = "/dev";
};

}  // namespace tev::common
