// Unusual /sys trees. The provider samples normally.

#include <sys/stat.h>

#include <cstdio>
#include <filesystem>

#include "tests/robustness/rig.h"
#include "tests/support/captured_log.h"

namespace tev::test {
namespace {

using namespace std::string_literals;

// What may exist instead of an entry.
struct Form {
  const char* name;
  void (*spoil)(TempTree& tree, const std::string& entry);
};
const Form kForms[] = {
    {"missing", [](auto&, auto&) {}},
    {"empty file", [](auto& tree, auto& entry) { tree.write(entry, ""); }},
    {"no text",
     [](auto& tree, auto& entry) { tree.write(entry, "\0\xff\n\0PCI_SLOT_NAME=\xff\0\n"s); }},
    {"one huge line",
     [](auto& tree, auto& entry) {
       tree.write(entry, "PCI_SLOT_NAME=" + std::string(1 << 20, '%'));
     }},
    {"empty folder", [](auto& tree, auto& entry) { tree.folder(entry); }},
    {"dangling link", [](auto& tree, auto& entry) { tree.link(entry, "nowhere"); }},
    {"link to itself", [](auto& tree, auto& entry) { tree.link(entry, tree.path(entry)); }},
    {"link to its folder", [](auto& tree, auto& entry) { tree.link(entry, "."); }},
    {"pipe",
     [](auto& tree, auto& entry) {
       std::filesystem::remove(tree.write(entry, ""));
       ASSERT_EQ(mkfifo(tree.path(entry).c_str(), 0600), 0);
     }},
    {"without permissions",
     [](auto& tree, auto& entry) {
       std::filesystem::permissions(tree.folder(entry), std::filesystem::perms::none);
     }},
};

TEST(Surroundings, NoSysTreeKeepsDevicesFromBeingSampled) {
  int tried = 0;
  for (const std::string entry :
       {"sys", "sys/class", "sys/class/infiniband", "sys/class/infiniband/rdma0",
        "sys/class/infiniband/rdma0/device", "sys/class/infiniband/rdma0/device/uevent",
        "sys/class/infiniband/rdma0/device/net", "sys/class/infiniband/another", "dev", "dev/zrd",
        "dev/zrd/zrd0"})
    for (const Form& form : kForms) {
      SCOPED_TRACE(entry + ": " + form.name);
      Rig rig;
      std::filesystem::remove_all(rig.tree.path(entry));
      form.spoil(rig.tree, entry);
      const CapturedLog log(TEV_LEVEL_INFO);
      EXPECT_EQ(rig.live().delivered_of.size(), 2u);
      ++tried;
    }
  std::printf("trees tried: %d\n", tried);
}

}  // namespace
}  // namespace tev::test
