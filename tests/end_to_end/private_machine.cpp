#include "tests/end_to_end/private_machine.h"

#include <sched.h>
#include <sys/mount.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "tests/support/temp_tree.h"

namespace tev::test {
namespace {

bool done(const char* what, int result) {
  if (result != 0) std::printf("no private machine: %s: %s\n", what, std::strerror(errno));
  return result == 0;
}

// Covers `target` with `source`, for this process only.
bool cover(const std::string& source, const char* target) {
  return done(target, mount(source.c_str(), target, nullptr, MS_BIND | MS_REC, nullptr));
}

}  // namespace

bool enterPrivateMachine(const std::vector<Adapter>& adapters) {
  if (!done("unshare", unshare(CLONE_NEWNS)) ||
      !done("private mounts", mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr)))
    return false;

  static TempTree tree;  // for as long as the process lives
  for (const auto& adapter : adapters) {
    const auto device = "class/infiniband/" + adapter.name + "/device/";
    tree.write(device + "uevent", "PCI_SLOT_NAME=" + adapter.pci_address + "\n");
    for (const auto& interface : adapter.interfaces) tree.folder(device + "net/" + interface);
    if (!adapter.device_node.empty()) {
      // A link stands in for the character device.
      const auto text = tree.write("nodes/" + adapter.device_node,
                                   "domain:bus:dev.fn=" + adapter.pci_address + "\n");
      tree.link("dev/zrd/" + adapter.device_node, text);
    }
  }
  // What a process cannot do without in /dev.
  for (const std::string name : {"null", "zero", "urandom"})
    if (!cover("/dev/" + name, tree.write("dev/" + name, "").c_str())) return false;
  return cover(tree.path("class"), "/sys/class") && cover(tree.path("dev"), "/dev");
}

}  // namespace tev::test
