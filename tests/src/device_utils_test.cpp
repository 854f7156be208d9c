#include "tev/device_utils.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <map>

#include "src/device_utils/port_identifiers.h"
#include "tests/support/captured_log.h"
#include "tests/support/environment.h"
#include "tests/support/temp_tree.h"

namespace {

using namespace tev::test;
using testing::ElementsAre;
using testing::Pair;
using testing::StartsWith;
using tev::common::HostRoots;
using tev::common::PortIdentifiers;
namespace detail = tev::common::detail;

class DeviceUtilsTest : public testing::Test {
 protected:
  DeviceUtilsTest() {
    environment.unset({"TEV_PCI_ADDRESS_STRIP_DOMAIN"});
    tree.folder("sys/class/infiniband");
  }

  std::string device(const std::string& hca) { return "sys/class/infiniband/" + hca + "/device"; }

  void adapter(const std::string& hca, const std::string& address, const Texts& interfaces = {}) {
    tree.write(device(hca) + "/uevent", "DRIVER=zrd\nPCI_SLOT_NAME=" + address + "\nPCI_ID=1\n");
    for (const auto& interface : interfaces) tree.folder(device(hca) + "/net/" + interface);
  }

  // A device node. Real ones cannot be created, so this is a link to a text with its address.
  void zrdDevice(const std::string& name, const std::string& address) {
    tree.link("dev/zrd/" + name, tree.write("nodes/" + name, "qz\ndomain:bus:dev.fn=" + address));
  }

  // The name, address, node and interfaces of each adapter, separated by blanks.
  Texts identifiers() {
    std::vector<PortIdentifiers> found(1);
    const bool any = detail::portIdentifiers(roots, found);
    EXPECT_EQ(any, !found.empty());
    Texts texts;
    for (PortIdentifiers& port : found) {
      texts.push_back(port.hca_name + ' ' + port.pci_address + ' ' + port.zrd_device);
      std::sort(port.network_interfaces.begin(), port.network_interfaces.end());
      for (const auto& interface : port.network_interfaces) texts.back() += ' ' + interface;
    }
    return texts;
  }

  Environment environment;
  TempTree tree;
  HostRoots roots{tree.path("sys"), tree.path("dev")};
};

TEST_F(DeviceUtilsTest, EverythingThatBelongsToAnAdapter) {
  adapter("rdma2", "0000:3b:00.2");
  tree.write(device("rdma2") + "/net", "no folder");
  adapter("rdma1", "0000:3b:00.1");
  adapter("rdma0", "0000:3b:00.0", {"eth0", "eth1"});
  zrdDevice("qz7", "0000:3b:00.0\n");
  const CapturedLog log;
  EXPECT_EQ(identifiers(), (Texts{"rdma0 0000:3b:00.0 qz7 eth0 eth1", "rdma1 0000:3b:00.1 ",
                                  "rdma2 0000:3b:00.2 "}));
  EXPECT_TRUE(log.contains(
      7, "[device_utils]   HCA=rdma1, PCI address=0000:3b:00.1, ZRD device=, network interface="));
  EXPECT_THAT(
      log.texts(4),
      ElementsAre(StartsWith("[device_utils] Could not get network interfaces for HCA rdma2: ")));
}

TEST_F(DeviceUtilsTest, AdaptersWithoutAnAddressAreLeftOut) {
  const CapturedLog log(TEV_LEVEL_WARNING);
  EXPECT_EQ(identifiers(), Texts{});
  adapter("empty", "");
  EXPECT_EQ(identifiers(), Texts{});
  EXPECT_EQ(log.lines(), (LogLines{{3, "[device_utils] Failed to get HCA info"},
                                   {4, "[device_utils] Could not get PCI address for HCA empty"},
                                   {3, "[device_utils] No valid devices found"}}));

  tree.folder(device("missing"));
  // The address is cut out by position.
  tree.write(device("odd") + "/uevent", "X_PCI_SLOT_NAME=00:01.0\nPCI_SLOT_NAME=00:02.0\n");
  std::map<std::string, std::string> addresses = {{"odd", "old"}, {"other", "kept"}};
  EXPECT_TRUE(detail::hcaToPciAddress(roots, addresses));
  EXPECT_THAT(addresses, ElementsAre(Pair("odd", "E=00:01.0"), Pair("other", "kept")));
}

TEST_F(DeviceUtilsTest, DomainIsStrippedOnRequest) {
  adapter("rdma0", "0000:3b:00.0");
  adapter("rdma1", "3c:00.0");
  zrdDevice("qz1", "0000:3c:00.0");
  const auto with = [&](const char* value) {
    environment.set("TEV_PCI_ADDRESS_STRIP_DOMAIN", value);
    return identifiers();
  };
  EXPECT_THAT(with("yes"), ElementsAre("rdma0 3b:00.0 ", "rdma1 3c:00.0 qz1"));
  EXPECT_THAT(with("on"), ElementsAre("rdma0 0000:3b:00.0 ", "rdma1 3c:00.0 "));
  for (const char* other : {"000g:3b:00.0", "00000:3b:00.0", "0000"})
    EXPECT_EQ(detail::withoutPciDomain(other), other);
}

TEST_F(DeviceUtilsTest, NodesNeedAFolderWithADeviceInIt) {
  adapter("rdma0", "0000:01:00.0");
  const CapturedLog log(TEV_LEVEL_INFO);
  EXPECT_EQ(identifiers(), Texts{"rdma0 0000:01:00.0 "});
  tree.write("dev/zrd/qz0", "domain:bus:dev.fn=0000:01:00.0\n");
  EXPECT_THAT(identifiers(), ElementsAre("rdma0 0000:01:00.0 "));
  EXPECT_EQ(log.lines(),
            linesAt(6, {"[device_utils] /dev/zrd is empty or does not exist",
                        "[device_utils] ZRD root directory does not exist: /dev/zrd. Cannot map "
                        "HCA to ZRD devices",
                        "[device_utils] No devices in /dev/zrd. Cannot map HCA to ZRD devices"}));
  tree.link("dev/zrd/anything", "nowhere");  // a device entry: now regular files are read, too
  EXPECT_THAT(identifiers(), ElementsAre("rdma0 0000:01:00.0 qz0"));
}

TEST_F(DeviceUtilsTest, WhichEntriesAndLinesCount) {
  for (const std::string n : {"0", "1", "2", "3"}) adapter("rdma" + n, "0000:0" + n + ":00.0");
  adapter("rdma4", "0000:03:00.0");  // the later name has it
  zrdDevice("xqz0", "0000:00:00.0");
  zrdDevice("qzx", "0000:01:00.0 and more than twelve characters\n");
  zrdDevice("qz2", "0000:09:00.0\n  domain:bus:dev.fn=0000:02:00.0\ndomain:bus:dev.fn=\n");
  zrdDevice("qz3", "0000:03:00.0");
  tree.link("dev/zrd/qz4", "qz4");
  tree.link("dev/zrd/qz7", "/dev/zero");  // no end
  EXPECT_THAT(identifiers(),
              ElementsAre("rdma0 0000:00:00.0 ", "rdma1 0000:01:00.0 qzx", "rdma2 0000:02:00.0 qz2",
                          "rdma3 0000:03:00.0 ", "rdma4 0000:03:00.0 qz3"));
}

TEST_F(DeviceUtilsTest, AdapterListIsSortedAndCutAndEndsWithAnEmptyName) {
  for (const char* hca : {"one_more_than_twenty_", "exactly_twenty_chars", "b", "a"})
    adapter(hca, "x");
  tev_hca_info_t infos[6];
  std::fill(std::begin(infos), std::end(infos), tev_hca_info_t{"garbage"});
  const CapturedLog log;
  ASSERT_TRUE(detail::fillHcaInfoArray(roots, infos, 6));
  Texts names;
  for (const auto& info : infos) names.emplace_back(info.name);
  EXPECT_EQ(names, (Texts{"a", "b", "exactly_twenty_chars", "one_more_than_twenty", "", ""}));
  EXPECT_TRUE(detail::fillHcaInfoArray(roots, infos, 2));  // as many as there is room for
  EXPECT_EQ(log.lines(), linesAt(4, {"HCA info: name one_more_than_twenty_ does not fit 20 buffer",
                                     "HCA info: only the first 2 of 4 adapters are looked at"}));
}

}  // namespace
