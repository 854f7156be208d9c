#include "tev/device_utils.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "src/device_utils/port_identifiers.h"
#include "tests/support/captured_log.h"
#include "tests/support/environment.h"
#include "tests/support/temp_tree.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using tev::common::HostRoots;
using tev::common::PortIdentifiers;
using tev::test::CapturedLog;
using tev::test::Environment;
using tev::test::LogLine;
using tev::test::TempTree;
namespace detail = tev::common::detail;

class DeviceUtilsTest : public testing::Test {
 protected:
  DeviceUtilsTest() {
    environment.unset({"TEV_PCI_ADDRESS_STRIP_DOMAIN"});
    tree.folder("sys/class/infiniband");
  }

  std::string device(const std::string& hca) { return "sys/class/infiniband/" + hca + "/device"; }

  void adapter(const std::string& hca, const std::string& address,
               const std::vector<std::string>& interfaces = {}) {
    tree.write(device(hca) + "/uevent", "DRIVER=zrd\nPCI_SLOT_NAME=" + address + "\nPCI_ID=1\n");
    for (const auto& interface : interfaces) tree.folder(device(hca) + "/net/" + interface);
  }

  // A device node: a link, as there are no real ones, to a text of its address.
  void zrdDevice(const std::string& name, const std::string& address) {
    tree.link("dev/zrd/" + name, tree.write("nodes/" + name, "qz\ndomain:bus:dev.fn=" + address));
  }

  std::vector<PortIdentifiers> identifiers() {
    std::vector<PortIdentifiers> found(1);
    EXPECT_EQ(detail::portIdentifiers(roots, found), !found.empty());
    return found;
  }

  // Adapter name to device node.
  std::map<std::string, std::string> nodes() {
    std::map<std::string, std::string> nodes;
    for (const auto& port : identifiers()) nodes[port.hca_name] = port.zrd_device;
    return nodes;
  }

  Environment environment;
  TempTree tree;
  HostRoots roots{tree.path("sys"), tree.path("dev")};
};

using PortIdentifiersTest = DeviceUtilsTest;
using ZrdFolder = DeviceUtilsTest;
using AdapterList = DeviceUtilsTest;

TEST_F(PortIdentifiersTest, EverythingThatBelongsToAnAdapter) {
  adapter("rdma1", "0000:3b:00.1");
  adapter("rdma0", "0000:3b:00.0", {"eth0", "eth1"});
  zrdDevice("qz7", "0000:3b:00.0\n");
  const CapturedLog log;
  const auto found = identifiers();
  ASSERT_EQ(found.size(), 2u);
  EXPECT_EQ(found[0].hca_name, "rdma0");
  EXPECT_EQ(found[0].pci_address, "0000:3b:00.0");
  EXPECT_EQ(found[0].zrd_device, "qz7");
  EXPECT_THAT(found[0].network_interfaces, UnorderedElementsAre("eth0", "eth1"));
  EXPECT_EQ(found[1].hca_name, "rdma1");
  EXPECT_EQ(found[1].zrd_device, "");
  EXPECT_THAT(found[1].network_interfaces, IsEmpty());

  const std::string joined = found[0].network_interfaces[0] + "," + found[0].network_interfaces[1];
  for (const std::string& text : {
           std::string("Found rdma0 PCI address - 0000:3b:00.0"),
           std::string("Found rdma0 ZRD device - qz7"),
           std::string("Found rdma0 network interface - eth1"),
           "Network interfaces directory does not exist: " + tree.path(device("rdma1") + "/net") +
               ". This is expected for IB devices",
           std::string("Found 2 devices with identifiers"),
           "  HCA=rdma0, PCI address=0000:3b:00.0, ZRD device=qz7, network interface=" + joined,
           std::string("  HCA=rdma1, PCI address=0000:3b:00.1, ZRD device=, network interface="),
       })
    EXPECT_EQ(log.count(7, "[device_utils] " + text), 1u) << text;
}

TEST_F(PortIdentifiersTest, AdaptersWithoutAnAddressAreLeftOut) {
  adapter("good", "0000:01:00.0");
  adapter("empty", "");
  tree.write(device("keyless") + "/uevent", "DRIVER=zrd\n");
  tree.folder(device("missing"));
  tree.folder(device("folder") + "/uevent");
  tree.link(device("dangling") + "/uevent", "nowhere");
  tree.link(device("loop") + "/uevent", "uevent");
  tree.link("sys/class/infiniband/broken", "nowhere");
  const CapturedLog log;
  const auto found = identifiers();
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0].hca_name, "good");
  std::vector<std::string> warnings;
  for (const char* hca : {"broken", "dangling", "empty", "folder", "keyless", "loop", "missing"})
    warnings.push_back(std::string("[device_utils] Could not get PCI address for HCA ") + hca);
  EXPECT_EQ(log.texts(TEV_LEVEL_WARNING), warnings);
}

TEST_F(PortIdentifiersTest, AddressIsCutOutByPosition) {
  tree.write(device("odd") + "/uevent",
             "X_PCI_SLOT_NAME=0000:01:00.0\nPCI_SLOT_NAME=0000:02:00.0\n");
  std::map<std::string, std::string> addresses = {{"odd", "old"}, {"other", "kept"}};
  EXPECT_TRUE(detail::hcaToPciAddress(roots, addresses));
  EXPECT_EQ(addresses,
            (std::map<std::string, std::string>{{"odd", "E=0000:01:00.0"}, {"other", "kept"}}));
}

TEST_F(PortIdentifiersTest, NoAdapterIsAFailure) {
  std::vector<PortIdentifiers> found(3);
  {
    const CapturedLog log;
    EXPECT_FALSE(detail::portIdentifiers(roots, found));
    EXPECT_EQ(log.lines(), (std::vector<LogLine>{{3, "[device_utils] Failed to get HCA info"}}));
  }
  EXPECT_THAT(found, IsEmpty());
  adapter("addressless", "");
  const CapturedLog log;
  EXPECT_FALSE(detail::portIdentifiers(roots, found));
  EXPECT_THAT(log.texts(3), ElementsAre("[device_utils] No valid devices found"));
}

TEST_F(PortIdentifiersTest, InterfaceFolderThatCannotBeRead) {
  adapter("file", "0000:01:00.0");
  tree.write(device("file") + "/net", "");
  adapter("loop", "0000:02:00.0");
  tree.link(device("loop") + "/net", "net");
  const CapturedLog log;
  EXPECT_EQ(identifiers().size(), 2u);
  const auto warnings = log.texts(TEV_LEVEL_WARNING);
  ASSERT_EQ(warnings.size(), 2u);
  EXPECT_TRUE(
      warnings[0].starts_with("[device_utils] Could not get network interfaces for HCA file: "));
  EXPECT_TRUE(
      warnings[1].starts_with("[device_utils] Could not get network interfaces for HCA loop: "));
}

TEST_F(PortIdentifiersTest, DomainIsStrippedOnRequest) {
  adapter("rdma0", "0000:3b:00.0");
  adapter("rdma1", "3c:00.0");
  zrdDevice("qz0", "0000:3b:00.0");
  zrdDevice("qz1", "0000:3c:00.0");
  struct Row {
    const char* value;
    const char* address;
    const char* node1;
  };
  for (const Row& row : {Row{"yes", "3b:00.0", "qz1"},
                         {"True", "3b:00.0", "qz1"},
                         {"1", "3b:00.0", "qz1"},
                         {"no", "0000:3b:00.0", ""},
                         {"", "0000:3b:00.0", ""},
                         {"on", "0000:3b:00.0", ""}}) {
    environment.set("TEV_PCI_ADDRESS_STRIP_DOMAIN", row.value);
    const auto found = identifiers();
    ASSERT_EQ(found.size(), 2u) << row.value;
    EXPECT_EQ(found[0].pci_address, row.address) << row.value;
    EXPECT_EQ(found[0].zrd_device, "qz0") << row.value;
    EXPECT_EQ(found[1].pci_address, "3c:00.0") << row.value;
    EXPECT_EQ(found[1].zrd_device, row.node1) << row.value;
  }
}

TEST(PciAddress, DomainIsFourHexadecimalDigits) {
  struct Row {
    const char* address;
    const char* stripped;
  };
  for (const Row& row : {Row{"0000:3b:00.0", "3b:00.0"},
                         {"aBcD:3b:00.0", "3b:00.0"},
                         {"0000:", ""},
                         {"000g:3b:00.0", "000g:3b:00.0"},
                         {"00000:3b:00.0", "00000:3b:00.0"},
                         {"3b:00.0", "3b:00.0"},
                         {"0000", "0000"},
                         {"", ""}})
    EXPECT_EQ(detail::withoutPciDomain(row.address), row.stripped);
}

TEST_F(ZrdFolder, MissingFolderLeavesNodesEmpty) {
  adapter("rdma0", "0000:01:00.0");
  const CapturedLog log;
  EXPECT_EQ(nodes(), (std::map<std::string, std::string>{{"rdma0", ""}}));
  EXPECT_THAT(
      log.texts(TEV_LEVEL_INFO),
      ElementsAre("[device_utils] /dev/zrd is empty or does not exist",
                  "[device_utils] ZRD root directory does not exist: /dev/zrd. Cannot map HCA to "
                  "ZRD devices"));
}

TEST_F(ZrdFolder, EntriesThatAreNoDevicesCountAsEmpty) {
  adapter("rdma0", "0000:01:00.0");
  tree.folder("dev/zrd/qzfolder");
  tree.write("dev/zrd/qz0", "domain:bus:dev.fn=0000:01:00.0\n");
  const CapturedLog log;
  EXPECT_EQ(nodes()["rdma0"], "");
  EXPECT_THAT(log.texts(TEV_LEVEL_INFO),
              ElementsAre("[device_utils] No devices in /dev/zrd. Cannot map HCA to ZRD devices"));
  tree.link("dev/zrd/anything",
            "nowhere");  // now a device entry is there, and plain files are read
  EXPECT_FALSE(detail::isZrdDirEmpty(roots));
  EXPECT_EQ(nodes()["rdma0"], "qz0");
}

TEST_F(ZrdFolder, WhichEntriesAndLinesCount) {
  adapter("rdma0", "0000:01:00.0");
  adapter("rdma1", "0000:02:00.0");
  adapter("rdma2", "0000:03:00.0");
  adapter("rdma3", "0000:04:00.0");
  zrdDevice("xqz0", "0000:01:00.0");
  zrdDevice("qzx", "0000:02:00.0 and more than twelve characters\n");
  tree.link("dev/zrd/qz2", tree.write("nodes/two",
                                      "domain:bus:dev.fn=0000:09:00.0\n"
                                      "  domain:bus:dev.fn=0000:03:00.0\n"
                                      "domain:bus:dev.fn=\n"));
  tree.link("dev/zrd/qz3", "nowhere");
  tree.link("dev/zrd/qz4", "qz4");
  tree.folder("dev/zrd/qz5");
  ASSERT_EQ(mkfifo(tree.path("dev/zrd/qz6").c_str(), 0600), 0);  // nobody writes into it
  tree.link("dev/zrd/qz7", "/dev/zero");                         // no end
  const CapturedLog log;
  EXPECT_EQ(nodes(), (std::map<std::string, std::string>{
                         {"rdma0", ""}, {"rdma1", "qzx"}, {"rdma2", "qz2"}, {"rdma3", ""}}));
  EXPECT_TRUE(log.contains(
      7, "[device_utils] Found 0000:09:00.0 ZRD device - but no HCA with such PCI address"));
}

TEST_F(ZrdFolder, SharedAddressGoesToTheLaterName) {
  adapter("rdma0", "0000:01:00.0");
  adapter("rdma1", "0000:01:00.0");
  zrdDevice("qz0", "0000:01:00.0");
  EXPECT_EQ(nodes(), (std::map<std::string, std::string>{{"rdma0", ""}, {"rdma1", "qz0"}}));
}

TEST_F(AdapterList, IsSortedAndEndsWithAnEmptyName) {
  for (const char* hca : {"c", "a", "b"}) adapter(hca, "x");
  tev_hca_info_t infos[5];
  std::fill(std::begin(infos), std::end(infos), tev_hca_info_t{"garbage"});
  ASSERT_TRUE(detail::fillHcaInfoArray(roots, infos, 5));
  EXPECT_STREQ(infos[0].name, "a");
  EXPECT_STREQ(infos[1].name, "b");
  EXPECT_STREQ(infos[2].name, "c");
  EXPECT_STREQ(infos[3].name, "");
  EXPECT_STREQ(infos[4].name, "");
  EXPECT_FALSE(detail::fillHcaInfoArray(roots, nullptr, 5));
  EXPECT_FALSE(detail::fillHcaInfoArray(roots, infos, 0));
}

TEST_F(AdapterList, LongNamesAreCut) {
  adapter("exactly_twenty_chars", "x");
  adapter("one_more_than_twenty_", "x");
  tev_hca_info_t infos[2];
  const CapturedLog log;
  ASSERT_TRUE(detail::fillHcaInfoArray(roots, infos, 2));
  EXPECT_STREQ(infos[0].name, "exactly_twenty_chars");
  EXPECT_STREQ(infos[1].name, "one_more_than_twenty");
  EXPECT_THAT(log.texts(TEV_LEVEL_WARNING),
              ElementsAre("HCA info: name one_more_than_twenty_ does not fit 20 buffer"));
}

TEST_F(AdapterList, MoreThan128AdaptersGetOneWarning) {
  for (int i = 100; i < 229; ++i) adapter("rdma" + std::to_string(i), "0000:01:00.0");
  const CapturedLog log(TEV_LEVEL_WARNING);
  const auto found = identifiers();
  ASSERT_EQ(found.size(), 128u);
  EXPECT_EQ(found.back().hca_name, "rdma227");
  EXPECT_EQ(log.lines().size(), 1u);
}

TEST(StringTemplate, FormatsIntoANewText) {
  char* const text = tev_expand_string_template("%s/%d/%s", std::string(500, 'x').c_str(), 7, "%s");
  EXPECT_EQ(text, std::string(500, 'x') + "/7/%s");
  std::free(text);
  char* (*const unchecked)(const char*, ...) = tev_expand_string_template;
  EXPECT_EQ(unchecked(nullptr), nullptr);
}

}  // namespace
