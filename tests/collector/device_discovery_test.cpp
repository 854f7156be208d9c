#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include "collector/collector.h"
#include "tests/support/captured_log.h"
#include "tests/support/fake_sdk.h"
#include "tests/support/options.h"
#include "tests/support/temp_tree.h"

namespace tev::events::multipath {
namespace {

using Trace = std::vector<std::string>;

const std::vector<std::string> kLines = {"rx, received", "tx, sent, plane 0", "tx, sent, plane 1"};

// Two devices with interfaces, one without, in a tree of their own.
class DeviceDiscovery : public testing::Test {
 protected:
  DeviceDiscovery() {
    for (const char* name : {"rdma0", "rdma1", "rdma2"}) sdk.add(name, kLines, {1, 2, 3});
    adapter("rdma0", "0000:01:00.0", {"enp1s0f0np0", "eth3"});
    adapter("rdma1", "0000:02:00.0", {"eth1"});
    adapter("rdma2", "0000:03:00.0", {});
  }

  void adapter(const std::string& name, const std::string& address,
               const std::vector<std::string>& interfaces) {
    const auto folder = "sys/class/infiniband/" + name + "/device/";
    tree.write(folder + "uevent", "DRIVER=x\nPCI_SLOT_NAME=" + address + "\n");
    for (const auto& interface : interfaces) tree.folder(folder + "net/" + interface);
  }

  std::unique_ptr<Collector> collector(const char* devices = "") {
    return std::make_unique<Collector>(
        test::options({{"multipath-devices", devices}}).get(),
        Surroundings{.sdk = &sdk.functions(), .roots = {tree.path("sys"), tree.path("dev")}});
  }

  static std::vector<std::string> names(const Collector& collector) {
    std::vector<std::string> found;
    for (const auto& dev : collector.devices()) found.push_back(dev.name);
    return found;
  }

  test::TempTree tree;
  test::FakeSdk sdk;
  test::CapturedLog log;
};

TEST_F(DeviceDiscovery, NamesDevicesByTheirShortestInterface) {
  {
    const auto all = collector();
    ASSERT_TRUE(all->initialize());
    EXPECT_EQ(names(*all), (Trace{"eth3", "eth1", "rdma2"}));
    EXPECT_TRUE(log.contains(7, "[multipath] RDMA device rdma0 mapped to network interface eth3"));
    EXPECT_TRUE(log.contains(
        7, "[multipath] RDMA device rdma1 mapped to one and only network interface eth1"));
    EXPECT_TRUE(log.contains(4, "[multipath] RDMA device rdma2 has no network interfaces"));
    EXPECT_TRUE(log.contains(4,
                             "[multipath] No network interface found for RDMA device rdma2, using "
                             "ibdev name as fallback"));
  }
  EXPECT_EQ(Trace(sdk.trace.end() - 10, sdk.trace.end()),
            (Trace{"stop rdma0", "destroy rdma0", "close rdma0", "stop rdma1", "destroy rdma1",
                   "close rdma1", "stop rdma2", "destroy rdma2", "close rdma2", "unlist"}));
  EXPECT_TRUE(sdk.balanced());
}

TEST_F(DeviceDiscovery, AmongInterfacesOfEqualLengthTheFirstListedWins) {
  adapter("rdma1", "0000:02:00.0", {"eth0", "eth7", "eth2"});
  std::map<std::string, std::string> map;
  const auto any = collector();
  any->getRdmaDevNameToNetworkInterfaceMap(map);
  std::string first;
  for (const auto& entry :
       std::filesystem::directory_iterator(tree.path("sys/class/infiniband/rdma1/device/net")))
    if (first.empty()) first = entry.path().filename().string();
  EXPECT_EQ(map.at("rdma1"), first);
}

TEST_F(DeviceDiscovery, WithoutInterfacesEveryDeviceKeepsItsRdmaName) {
  std::filesystem::remove_all(tree.path("sys"));
  const auto all = collector();
  ASSERT_TRUE(all->initialize());
  EXPECT_EQ(names(*all), (Trace{"rdma0", "rdma1", "rdma2"}));
  EXPECT_TRUE(log.contains(4, "[multipath] Could not get port identifiers"));
}

TEST_F(DeviceDiscovery, SelectsByTheResolvedNameOnly) {
  struct Row {
    const char* selection;
    Trace names;
  };
  const Row rows[] = {
      {" eth1 ,, eth3 ,,", {"eth3", "eth1"}},  // in the order of the SDK's list
      {"rdma2", {"rdma2"}},
      {"rdma0", {}},  // has an interface, and goes by its name
      {"ETH1", {}},
      {" , ", {}},
      {"all", {}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.selection);
    const auto some = collector(row.selection);
    EXPECT_EQ(some->initialize(), !row.names.empty());
    EXPECT_EQ(names(*some), row.names);
  }
  EXPECT_TRUE(log.contains(
      7, "[multipath] Skipping device eth3 as it is not in the configured device list"));
  EXPECT_TRUE(log.contains(7, "[multipath] No devices found for MP"));
  EXPECT_TRUE(log.contains(7, "[multipath] Failed to set devices"));
  EXPECT_TRUE(sdk.balanced());
}

TEST_F(DeviceDiscovery, ADeviceWithoutSupportIsTriedOnlyWhenAskedFor) {
  sdk.devices[0].supported = 9;
  EXPECT_TRUE(collector()->initialize());
  EXPECT_TRUE(
      log.contains(6, "[multipath] Skipping device eth3 as it does not support MP: STATUS_9"));
  const auto named = collector("eth3");
  ASSERT_TRUE(named->initialize());
  EXPECT_EQ(names(*named), Trace{"eth3"});
}

// Each way in which the first of the devices fails; the others are kept.
struct Failure {
  const char* name;
  std::function<void(test::FakeSdk&)> arrange;
  std::uint32_t level;
  const char* line;
  Trace trace;  // of that device
};

Failure fault(const char* name, const test::Fault& fault, std::uint32_t level, const char* line,
              Trace trace) {
  return {name, [fault](test::FakeSdk& sdk) { sdk.faults = {fault}; }, level, line,
          std::move(trace)};
}

Failure device(const char* name, const std::function<void(test::FakeDevice&)>& change,
               std::uint32_t level, const char* line) {
  return {
      name,
      [change](test::FakeSdk& sdk) { change(sdk.devices[0]); },
      level,
      line,
      {"open rdma0", "create rdma0", "start rdma0", "stop rdma0", "destroy rdma0", "close rdma0"}};
}

TEST_F(DeviceDiscovery, LeavesOutADeviceThatFailsAndGivesItBack) {
  const Trace opened = {"open rdma0", "close rdma0"};
  const Trace created = {"open rdma0", "create rdma0", "destroy rdma0", "close rdma0"};
  const Trace started = {"open rdma0", "create rdma0",  "start rdma0",
                         "stop rdma0", "destroy rdma0", "close rdma0"};
  const auto set_slots = [](const std::vector<test::FakeSlot>& slots) {
    return [slots](test::FakeDevice& dev) { dev.slots = slots; };
  };
  const Failure failures[] = {
      fault("not opened", {.function = "vuna_dev_open"}, 4,
            "[multipath] Could not open device #0: STATUS_5", {}),
      fault("opened to nothing", {.function = "vuna_dev_open", .status = 0}, 4,
            "[multipath] Invalid device #0", {}),
      fault("no description", {.function = "vuna_dev_as_devinfo"}, 4,
            "[multipath] Could not get device #0", opened),
      fault("no name", {.function = "vuna_devinfo_get_ibdev_name"}, 4,
            "[multipath] Could not get device name of device #0 (STATUS_5)", opened),
      fault("no context", {.function = "vuna_telemetry_mp_create"}, 4,
            "[multipath] Could not create vuna context for device eth3: STATUS_5", opened),
      fault("null context", {.function = "vuna_telemetry_mp_create", .status = 0}, 4,
            "[multipath] Invalid MP for device eth3", opened),
      fault("not started", {.function = "vuna_telemetry_mp_start"}, 4,
            "[multipath] Could not start MP for device eth3: STATUS_5", created),
      // The second description is the slot search's.
      fault("no description for the slots", {.function = "vuna_dev_as_devinfo", .call = 2}, 4,
            "[multipath] Could not get device info for device eth3", started),
      fault("no slot count", {.function = "vuna_telemetry_mp_cap_get_max_algo_slots"}, 4,
            "[multipath] Could not get max algo slots for device eth3: STATUS_5", started),
      device("no slots", set_slots({}), 4, "[multipath] No active algo slot found for device eth3"),
      device("an empty slot", set_slots({{.id_status = 18}}), 7,
             "[multipath] slot 0 of device eth3 is empty"),
      device("an invalid slot", set_slots({{.enable_status = 21}}), 7,
             "[multipath] slot 0 of device eth3 is invalid"),
      device("an algorithm that is off", set_slots({{.algo_enabled = 0}}), 7,
             "[multipath] Found active algo slot 0 for device eth3 but algo is not enabled"),
      device("counters that are off", set_slots({{.counters_enabled = 0}}), 4,
             "[multipath] Found active algo slot 0 for device eth3 but counters are not enabled"),
      device("an unreadable id ends the search", set_slots({{.id_status = 21}, {}}), 4,
             "[multipath] Could not get algo ID for slot 0 of device eth3: STATUS_21"),
      device("an unreadable state ends the search", set_slots({{.enable_status = 18}, {}}), 4,
             "[multipath] Could not get algo enable status for slot 0 of device eth3: STATUS_18"),
      fault("no major version", {.function = "vuna_telemetry_mp_get_algo_major_version"}, 4,
            "[multipath] Could not get algo major version for slot 0 of device eth3: STATUS_5",
            started),
      fault("no minor version", {.function = "vuna_telemetry_mp_get_algo_minor_version"}, 4,
            "[multipath] Could not get algo minor version for slot 0 of device eth3: STATUS_5",
            started),
      fault("no info length", {.function = "vuna_telemetry_mp_cap_get_max_algo_info_len"}, 4,
            "[multipath] Could not get max algo info len for device eth3: STATUS_5", started),
      device(
          "an info length of zero", [](auto& dev) { dev.algo_info_length = 0; }, 4,
          "[multipath] Max algo info len for device eth3 is 0"),
      fault("no info", {.function = "vuna_telemetry_mp_get_algo_info"}, 4,
            "[multipath] Could not get algo info for slot 0 of device eth3: STATUS_5", started),
      fault("no counter count", {.function = "vuna_telemetry_mp_get_num_counters"}, 4,
            "[multipath] Could not get num counters for slot 0 of device eth3: STATUS_5", started),
      fault("no counter length", {.function = "vuna_telemetry_mp_cap_get_max_counter_info_len"}, 4,
            "[multipath] Could not get max counter info len for device eth3: STATUS_5", started),
      fault("no counter text", {.function = "vuna_telemetry_mp_get_counter_info", .call = 2}, 4,
            "[multipath] Could not get counter info for counter 1 of slot 0 of device eth3: "
            "STATUS_5",
            started),
  };
  const auto pristine = sdk.devices;
  for (const auto& failure : failures) {
    SCOPED_TRACE(failure.name);
    sdk.devices = pristine;
    sdk.faults.clear();
    sdk.trace.clear();
    sdk.calls.clear();
    log.clear();
    failure.arrange(sdk);
    {
      const auto all = collector();
      ASSERT_TRUE(all->initialize());
      EXPECT_EQ(names(*all), (Trace{"eth1", "rdma2"}));
    }
    EXPECT_TRUE(log.contains(failure.level, failure.line));
    if (failure.trace.size() > 4) {
      EXPECT_TRUE(
          log.contains(4, "[multipath] Could not set active algo slot info for device eth3"));
    }
    Trace of_first;
    for (const auto& entry : sdk.trace)
      if (entry.ends_with("rdma0")) of_first.push_back(entry);
    EXPECT_EQ(of_first, failure.trace);
    EXPECT_TRUE(sdk.balanced());
  }
}

TEST_F(DeviceDiscovery, AFailedOpenThatLeavesAHandleGoesOnWithIt) {
  sdk.faults = {{.function = "vuna_dev_open", .delivers = true}};
  const auto all = collector();
  ASSERT_TRUE(all->initialize());
  EXPECT_EQ(names(*all).front(), "eth3");
  EXPECT_TRUE(log.contains(4, "[multipath] Could not open device #0: STATUS_5"));
}

TEST_F(DeviceDiscovery, WithoutAListOrADeviceItFailsAndHoldsNothing) {
  {
    sdk.faults = {{.function = "vuna_devinfo_create_list"}};
    EXPECT_FALSE(collector()->initialize());
    EXPECT_TRUE(log.contains(7, "[multipath] Failed to create device list: STATUS_5"));
    EXPECT_EQ(sdk.calls["vuna_devinfo_destroy_list"], 0u);
  }
  {
    sdk.faults = {};
    sdk.devices.clear();
    EXPECT_FALSE(collector()->initialize());
    EXPECT_TRUE(log.contains(7, "[multipath] No devices found for MP"));
  }
  EXPECT_TRUE(sdk.balanced());
}

TEST_F(DeviceDiscovery, AnExceptionInTheMiddleGivesEverythingBack) {
  sdk.devices[1].lines[0] = "x, plane 99999999999999999999";
  const auto all = collector();
  EXPECT_THROW(all->initialize(), std::out_of_range);
  EXPECT_EQ(all->numDevices(), 0u);
  EXPECT_TRUE(sdk.balanced());
  // And it can be tried again.
  sdk.devices[1].lines[0] = "x, y";
  EXPECT_TRUE(all->initialize());
}

TEST_F(DeviceDiscovery, TheFirstFullyEnabledSlotWins) {
  sdk.devices[0].slots = {{.id_status = 18}, {.counters_enabled = 0}, {}, {}};
  const auto all = collector();
  ASSERT_TRUE(all->initialize());
  EXPECT_EQ(all->devices()[0].slot_info.slot, 2);
  EXPECT_TRUE(log.contains(6, "[multipath] Device eth3: algo_id=102, algo_version=1.2"));
  EXPECT_TRUE(log.contains(7, "[multipath] Found active algo slot 2 for device eth3"));
}

TEST_F(DeviceDiscovery, TextsAreCutAtTheirReportedLength) {
  auto& dev = sdk.devices[0];
  dev.algo_info_length = 5;     // "fake " without terminator, the last byte cut
  dev.counter_info_length = 4;  // "rx, " likewise
  dev.name = std::string(80, 'n');
  const auto all = collector();
  ASSERT_TRUE(all->initialize());
  const auto& kept = all->devices()[0];
  EXPECT_EQ(kept.slot_info.algo_info, "fake");
  EXPECT_EQ(kept.slot_info.counter_infos[0], "rx,");
  EXPECT_EQ(kept.name, std::string(63, 'n'));
}

TEST_F(DeviceDiscovery, AZeroCounterTextLengthIsAnEmptyDescription) {
  sdk.devices[0].counter_info_length = 0;
  const auto all = collector();
  ASSERT_TRUE(all->initialize());
  EXPECT_EQ(all->devices()[0].slot_info.counter_infos, (Trace{"", "", ""}));
}

TEST_F(DeviceDiscovery, ATextThatIsNotFilledInIsEmpty) {
  sdk.faults = {{.function = "vuna_telemetry_mp_get_counter_info", .call = 2, .status = 0}};
  const auto all = collector();
  ASSERT_TRUE(all->initialize());
  EXPECT_EQ(all->devices()[0].slot_info.counter_infos, (Trace{kLines[0], "", kLines[2]}));
}

TEST_F(DeviceDiscovery, LooksAtNoMoreThan256SlotsAndCounters) {
  sdk.devices[0].slots.assign(257, {.id_status = 18});
  sdk.devices[0].max_slots = 0xffffffff;
  sdk.devices[1].num_counters = 0xffffffff;
  const auto all = collector();
  ASSERT_TRUE(all->initialize());
  EXPECT_EQ(sdk.calls["vuna_telemetry_mp_get_algo_id"], 256u + 2);
  EXPECT_EQ(all->devices()[0].slot_info.counter_infos.size(), 256u);
  EXPECT_TRUE(log.contains(
      4, "[multipath] Device eth3 reports 4294967295 algo slots, looking at the first 256"));
  EXPECT_TRUE(log.contains(4,
                           "[multipath] Slot 0 of device eth1 declares 4294967295 counters, "
                           "looking at the first 256"));
}

// The flag that allows one backend per process is never reset: the process of a death test gives
// each row a fresh one.
TEST(SdkLogDeathTest, IsRoutedOncePerProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto run = [](const std::vector<const char*>& words,
                      const std::vector<test::Fault>& faults) {
    test::FakeSdk sdk;
    sdk.faults = faults;
    const test::CapturedLog log;
    for (const char* word : words)
      Collector(test::options({{"multipath-sdk-log-level", word}}).get(),
                Surroundings{.sdk = &sdk.functions()});
    for (const auto& line : sdk.trace) std::fprintf(stderr, "%s;", line.c_str());
    for (const auto& line : log.lines())
      if (line.text.find("setSDKLogs") != std::string::npos)
        std::fprintf(stderr, "%u%s;", line.level, line.text.c_str());
    std::exit(0);
  };
  const auto exits = testing::ExitedWithCode(0);
  EXPECT_EXIT(run({"debug", "trace"}, {}), exits,
              "^sdk level 60;7.multipath. .setSDKLogs. SDK logger already set;$");
  EXPECT_EXIT(run({"Warning", "", "%s", "disable"}, {}), exits,
              "^sdk level 10;"
              "4.multipath. .setSDKLogs. Invalid SDK logs level: Warning;"
              "4.multipath. .setSDKLogs. Invalid SDK logs level: ;"
              "4.multipath. .setSDKLogs. Invalid SDK logs level: %s;$");
  EXPECT_EXIT(run({"info", "info"}, {{.function = "vuna_log_backend_create_with_file_sdk"}}), exits,
              "^4.multipath. .setSDKLogs. Could not create SDK logs: STATUS_5;"
              "7.multipath. .setSDKLogs. SDK logger already set;$");
  EXPECT_EXIT(run({"info"}, {{.function = "vuna_log_backend_create_with_file_sdk", .status = 0}}),
              exits, "^4.multipath. .setSDKLogs. Could not create SDK logs: STATUS_0;$");
  EXPECT_EXIT(run({"info"}, {{.function = "vuna_log_backend_set_sdk_level"}}), exits,
              "^4.multipath. .setSDKLogs. Could not set SDK logs level 'info': STATUS_5;$");
}

}  // namespace
}  // namespace tev::events::multipath
