#include <sys/stat.h>

#include <fstream>

#include "tests/simulator/sdk.h"

namespace simulator_test {
namespace {

class Netdev : public SimulatorTest {
 protected:
  Netdev() {
    statistic("eth0/statistics/rx_bytes", "100\n");
    statistic("eth0/statistics/collisions", "7");
    statistic("eth0/statistics/tx_packets", "4294967301\n");  // 5 over 32 bits
    tree.folder("net");
    setenv("VUNA_SIMULATOR_SYSFS", tree.path("net").c_str(), 1);
  }
  void statistic(const std::string& path, const std::string& text) {
    tree.write("net/" + path, text);
  }
  std::string nameOf(std::uint32_t device) {
    char name[64] = "";
    sdk->vuna_devinfo_get_ibdev_name(list[device], name, 64);
    return name;
  }
};

TEST_F(Netdev, InterfacesAreDevicesAndTheirStatisticsCounters) {
  statistic("aaa/statistics/rx_errors", "1");
  loadNamed("netdev");
  vuna_telemetry_mp* const mp = start(1);
  ASSERT_EQ(count, 2U);
  EXPECT_EQ(nameOf(0), "aaa");
  EXPECT_EQ(nameOf(1), "eth0");
  EXPECT_EQ(counterText(mp, 0, 0), "collisions, collisions");
  EXPECT_EQ(counterText(mp, 0, 1), "rx_bytes, received bytes");
  EXPECT_EQ(counterText(mp, 0, 2), "tx_packets, transmitted packets");

  EXPECT_EQ(read(mp), (std::vector<std::uint32_t>{7, 100, 5}));
  statistic("eth0/statistics/rx_bytes", "250\n");
  EXPECT_EQ(read(mp, 0, true), (std::vector<std::uint32_t>{7, 250, 5}));
  statistic("eth0/statistics/rx_bytes", "251\n");
  EXPECT_EQ(read(mp, 0, true), (std::vector<std::uint32_t>{0, 1, 0}));
}

TEST_F(Netdev, OddEntriesAreLeftOut) {
  tree.folder("net/no_statistics");
  tree.folder("net/empty/statistics");
  statistic("text/statistics/rx_bytes", "many");
  statistic("negative/statistics/rx_bytes", "-1\n");
  statistic("huge/statistics/rx_bytes", "18446744073709551616\n");
  statistic("eth0/statistics/broken", "");
  statistic("eth0/statistics/.hidden", "1");
  tree.folder("net/eth0/statistics/folder");
  tree.link("net/eth0/statistics/loop", "loop");
  tree.link("net/dangling", "nowhere");
  ASSERT_EQ(mkfifo(tree.path("net/eth0/statistics/pipe").c_str(), 0600), 0);
  loadNamed("netdev");
  vuna_telemetry_mp* const mp = start();
  EXPECT_EQ(count, 1U);
  EXPECT_EQ(read(mp).size(), 3U);
}

TEST_F(Netdev, ReadOfAVanishedInterfaceFails) {
  loadNamed("netdev");
  vuna_telemetry_mp* const mp = start();
  EXPECT_EQ(read(mp).size(), 3U);
  statistic("eth0/statistics/rx_bytes", "");  // as the kernel's files then have nothing to say
  std::uint32_t filled = 0;
  std::uint32_t values[3];
  const vuna_status status = sdk->vuna_telemetry_mp_get_counters(mp, 0, &filled, values);
  EXPECT_STREQ(sdk->vuna_error_get_name(status), "VUNA_DEVICE_GONE");
  EXPECT_EQ(filled, 0U);
}

TEST_F(Netdev, NoInterfacesNoDevices) {
  setenv("VUNA_SIMULATOR_SYSFS", tree.path("nowhere").c_str(), 1);
  loadNamed("netdev");
  EXPECT_EQ(refusal(), "");
  EXPECT_EQ(count, 0U);
  EXPECT_NE(list, nullptr);
}

TEST_F(Netdev, ThisMachinesLoopbackIsLive) {
  unsetenv("VUNA_SIMULATOR_SYSFS");
  loadNamed("netdev");
  ASSERT_EQ(refusal(), "");
  for (std::uint32_t device = 0; device < count; ++device) {
    if (nameOf(device) != "lo") continue;
    EXPECT_GE(read(start(device)).size(), 20U);
    return;
  }
  FAIL() << "no loopback interface among " << count;
}

}  // namespace
}  // namespace simulator_test
