// A machine of the tests' own: this process sees a made-up /sys/class and /dev/zrd and nobody else
// does.
#pragma once

#include <string>
#include <vector>

namespace tev::test {

struct Adapter {
  std::string name;
  std::string pci_address;
  std::vector<std::string> interfaces;
  std::string device_node;  // in /dev/zrd; empty: none
};

// Enters a private mount namespace and puts the adapters there. False when the kernel does not
// allow it; the reason has been printed then. Once per process.
bool enterPrivateMachine(const std::vector<Adapter>& adapters);

}  // namespace tev::test
