#include <gmock/gmock.h>
#include <sys/resource.h>

#include <utility>

#include "tests/support/fake_machine.h"

namespace tev::events::multipath {
namespace {

using test::failing;
using test::Function;
using Texts = std::vector<std::string>;

// Two devices with interfaces, one without.
class DeviceDiscovery : public testing::Test, protected test::FakeMachine {
 protected:
  DeviceDiscovery() {
    for (const char* name : {"rdma0", "rdma1", "rdma2"})
      sdk.add(name, {"rx, received", "tx, sent, plane 0", "tx, sent, plane 1"}, {1, 2, 3});
    adapter("rdma0", "0000:01:00.0", {"enp1s0f0np0", "eth3"});
    adapter("rdma1", "0000:02:00.0", {"eth1"});
    adapter("rdma2", "0000:03:00.0", {});
  }

  // The names of the devices; empty when initialize failed. The devices have been released.
  Texts found(const char* selected = "") {
    sdk.restart();
    Collector collector(test::options({{"multipath-devices", selected}}).get(), surroundings());
    const bool initialized = collector.initialize();
    EXPECT_EQ(initialized, collector.numDevices() > 0);
    Texts names;
    slots.clear();
    reasons.clear();
    for (const auto& listed : collector.listed()) reasons.push_back(listed.reason);
    for (const auto& dev : collector.devices()) {
      names.push_back(dev.name);
      slots.push_back(dev.slot_info);
    }
    return names;
  }

  void expectLogged(std::uint32_t level, const std::string& text) {
    EXPECT_EQ(log.count(level, "[multipath] " + text), 1u) << text;
  }

  void expectFirstLeftOut(const std::string& warning) {
    log.clear();
    EXPECT_EQ(found(), (Texts{"eth1", "rdma2"}));
    EXPECT_EQ(reasons, (Texts{warning, "", ""}));
    expectLogged(4, warning);
    EXPECT_TRUE(sdk.balanced()) << warning;
  }

  std::vector<simulator::Device>& devices = sdk.scenario.devices;
  std::vector<SlotInfo> slots;
  Texts reasons;  // why listed devices are left out
  test::CapturedLog log;
};

TEST_F(DeviceDiscovery, NamesDevicesByTheirShortestInterface) {
  sdk.trace_file = tree.path("trace");
  EXPECT_EQ(found(), (Texts{"eth3", "eth1", "rdma2"}));
  expectLogged(7, "RDMA device rdma0 mapped to network interface eth3");
  expectLogged(7, "RDMA device rdma1 mapped to one and only network interface eth1");
  expectLogged(4, "RDMA device rdma2 has no network interfaces");
  expectLogged(4, "No network interface found for RDMA device rdma2, using ibdev name as fallback");
  expectLogged(6, "Device eth3: algo_id=100, algo_version=1.2");
  expectLogged(7, "Found active algo slot 0 for device eth3");
  std::string releases;
  for (const std::string name : {"rdma0", "rdma1", "rdma2"})
    for (const std::string call :
         {"vuna_telemetry_mp_stop ", "vuna_telemetry_mp_destroy ", "vuna_dev_close "})
      releases += call + name + " - 0\n";
  EXPECT_THAT(test::readAll(tree.path("trace")),
              testing::EndsWith(releases + "vuna_devinfo_destroy_list - - 0\n"));

  // Among interfaces with equally short names, the first one is used.
  for (const char* name : {"eth0", "eth7", "eth2"})
    tree.folder(std::string("sys/class/infiniband/rdma1/device/net/") + name);
  const std::filesystem::directory_iterator listed(
      tree.path("sys/class/infiniband/rdma1/device/net"));
  EXPECT_EQ(found()[1], listed->path().filename().string());

  std::filesystem::remove_all(tree.path("sys"));
  EXPECT_EQ(found(), (Texts{"rdma0", "rdma1", "rdma2"}));
  expectLogged(4, "Could not get port identifiers");
}

TEST_F(DeviceDiscovery, SelectsByTheResolvedNameOnly) {
  EXPECT_EQ(found(" eth1 ,,\teth3 ,,"), (Texts{"eth3", "eth1"}));  // in the order of the SDK's list
  EXPECT_EQ(found("rdma2"), Texts{"rdma2"});
  const std::string not_selected =
      "Skipping device eth3 as it is not in the configured device list";
  expectLogged(7, not_selected);
  EXPECT_EQ(reasons[0], not_selected);
  for (const char* of_none : {"rdma0", "ETH1", " , ", "all"}) {
    log.clear();
    EXPECT_EQ(found(of_none), Texts());
    expectLogged(7, "No devices found for MP");
    expectLogged(7, "Failed to set devices");
  }
  // A device without support is tried only when it is selected by name.
  devices[0].multipath_support = 9;
  EXPECT_EQ(found(), (Texts{"eth1", "rdma2"}));
  expectLogged(6, "Skipping device eth3 as it does not support MP: STATUS_9");
  EXPECT_EQ(found("eth3"), Texts{"eth3"});
}

TEST_F(DeviceDiscovery, LeavesOutADeviceThatFails) {
  struct Row {
    Function function;
    std::string what;
    std::uint64_t call = 1;
  };
  const std::string of_device = " for device eth3: STATUS_5";
  const std::string of_slot = " for slot 0 of device eth3: STATUS_5";
  const Row refused[] = {
      {Function::vuna_dev_open, "open device #0: STATUS_5"},
      {Function::vuna_dev_as_devinfo, "get device #0"},
      {Function::vuna_devinfo_get_ibdev_name, "get device name of device #0 (STATUS_5)"},
      {Function::vuna_telemetry_mp_create, "create vuna context" + of_device},
      {Function::vuna_telemetry_mp_start, "start MP" + of_device},
      // The second description is read by the search for the slot.
      {Function::vuna_dev_as_devinfo, "get device info for device eth3", 2},
      {Function::vuna_telemetry_mp_cap_get_max_algo_slots, "get max algo slots" + of_device},
      {Function::vuna_telemetry_mp_get_algo_major_version, "get algo major version" + of_slot},
      {Function::vuna_telemetry_mp_get_algo_minor_version, "get algo minor version" + of_slot},
      {Function::vuna_telemetry_mp_cap_get_max_algo_info_len, "get max algo info len" + of_device},
      {Function::vuna_telemetry_mp_get_algo_info, "get algo info" + of_slot},
      {Function::vuna_telemetry_mp_get_num_counters, "get num counters" + of_slot},
      {Function::vuna_telemetry_mp_cap_get_max_counter_info_len,
       "get max counter info len" + of_device},
      {Function::vuna_telemetry_mp_get_counter_info,
       "get counter info for counter 1 of" + of_slot.substr(4), 2},
  };
  for (const auto& row : refused) {
    sdk.scenario.faults = {};
    sdk.scenario.faults.add(failing(row.function, row.call));
    expectFirstLeftOut("Could not " + row.what);
    EXPECT_EQ(log.contains(4, "[multipath] Could not set active algo slot info for device eth3"),
              sdk.reported("starts") == 3);
  }
  EXPECT_TRUE(log.contains(4, "[multipath] Could not fill up slot info for device eth3"));

  const Row without_output[] = {
      {Function::vuna_dev_open, "Invalid device #0"},
      {Function::vuna_telemetry_mp_create, "Invalid MP for device eth3"},
      {Function::vuna_telemetry_mp_cap_get_max_algo_info_len,
       "Max algo info len for device eth3 is 0"},
  };
  for (const auto& row : without_output) {
    sdk.scenario.faults = {};
    sdk.scenario.faults.add(failing(row.function, row.call, 0));
    expectFirstLeftOut(row.what);
  }
}

TEST_F(DeviceDiscovery, TheFirstSlotThatIsFullyOnWins) {
  struct Row {
    simulator::Slot slot;
    std::uint32_t level;
    std::string line;
    bool ends_the_search = false;
  };
  const std::string active = "Found active algo slot 0 for device eth3";
  const Row rows[] = {
      {{.id_status = 18}, 7, "slot 0 of device eth3 is empty"},
      {{.enable_status = 21}, 7, "slot 0 of device eth3 is invalid"},
      {{.algo_enabled = false}, 7, active + " but algo is not enabled"},
      {{.counters_enabled = false}, 4, active + " but counters are not enabled"},
      {{.id_status = 21}, 4, "Could not get algo ID for slot 0 of device eth3: STATUS_21", true},
      {{.enable_status = 18},
       4,
       "Could not get algo enable status for slot 0 of device eth3: STATUS_18",
       true},
  };
  const auto good = devices[0].slots[0];
  devices[0].max_algo_slots = 3;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.line);
    log.clear();
    devices[0].slots = {row.slot, good, good};
    const auto names = found();
    ASSERT_EQ(names[0], row.ends_the_search ? "eth1" : "eth3");
    EXPECT_EQ(slots[0].slot, row.ends_the_search ? 0 : 1);
    expectLogged(row.level, row.line);
  }
  devices[0].slots = {rows[3].slot};
  found();
  EXPECT_EQ(reasons[0],
            "No active algo slot found for device eth3; the counters of slot 0 are not enabled");
}

TEST_F(DeviceDiscovery, LooksAtNoMoreThan256SlotsAndCounters) {
  devices[0].slots.clear();
  devices[0].max_algo_slots = 0xffffffff;
  devices[1].slots[0].counters.resize(256);
  devices[1].slots[0].declared_counters = 100'000;
  expectFirstLeftOut("No active algo slot found for device eth3");
  EXPECT_EQ(sdk.reported("vuna_telemetry_mp_get_algo_id"), 256u + 2);
  EXPECT_EQ(slots[0].counter_infos.size(), 256u);
  expectLogged(4, "Device eth3 reports 4294967295 algo slots, looking at the first 256");
  expectLogged(4, "Slot 0 of device eth1 declares 100000 counters, looking at the first 256");
}

TEST_F(DeviceDiscovery, AHandleCountsWhateverTheStatusAndAListOnlyWithASuccess) {
  auto fault = failing(Function::vuna_dev_open);
  fault.deliver = simulator::Fault::Deliver::result;
  sdk.scenario.faults.add(fault);
  EXPECT_EQ(found()[0], "eth3");
  expectLogged(4, "Could not open device #0: STATUS_5");

  fault.function = Function::vuna_devinfo_create_list;
  sdk.scenario.faults.add(fault);
  EXPECT_EQ(found(), Texts());
  expectLogged(7, "Failed to create device list: STATUS_5");
  EXPECT_EQ(sdk.reported("vuna_devinfo_destroy_list"), 0u);

  // A count without a list.
  sdk.functions.vuna_devinfo_create_list = [](auto*** list, auto* count) {
    *list = nullptr;
    *count = 3;
    return kVunaSuccess;
  };
  EXPECT_EQ(found(), Texts());
  EXPECT_EQ(sdk.reported("vuna_devinfo_destroy_list"), 0u);
}

TEST_F(DeviceDiscovery, AnAnswerThatCannotBeUsedCostsItsDeviceAlone) {
  struct Row {
    std::uint32_t simulator::Device::*size;
    const char* reason;
  };
  const Row rows[] = {
      {&simulator::Device::max_algo_info_len, "no memory for a text of 4294967295 bytes"},
      {&simulator::Device::max_counter_info_len, "no memory for a text of 4294967295 bytes"},
      {&simulator::Device::max_num_counters, "no memory for the 4294967295 counters of a read"},
  };
  // A sanitizer refuses allocations of these sizes. Without one, the address space is limited.
  rlimit before{};
  getrlimit(RLIMIT_AS, &before);
  const rlimit limited{.rlim_cur = rlim_t{2} << 30, .rlim_max = before.rlim_max};
  if (!SANITIZED) setrlimit(RLIMIT_AS, &limited);
  for (const auto& row : rows) {
    const auto size = std::exchange(devices[0].*row.size, UINT32_MAX);
    expectFirstLeftOut(std::string("Skipping device eth3: ") + row.reason);
    devices[0].*row.size = size;
  }
  setrlimit(RLIMIT_AS, &before);

  devices[0].slots[0].counters[1].text = "tx, sent, plane 99999999999999999999";
  expectFirstLeftOut("Skipping device eth3: the plane number of a counter is out of range");
  for (auto& device : devices) device.slots = devices[0].slots;
  EXPECT_EQ(found(), Texts());
}

TEST_F(DeviceDiscovery, TextsAreCutAtTheirReportedLength) {
  auto& dev = devices[0];
  dev.max_algo_info_len = 5;     // "algor" without terminator, the last byte cut
  dev.max_counter_info_len = 4;  // "rx, " likewise
  dev.ibdev_name = std::string(80, 'n');
  dev.unterminated_name = dev.slots[0].unterminated = true;
  devices[1].max_counter_info_len = 0;
  // A text that is not filled in does not contain parts of the previous text.
  sdk.scenario.faults.add(failing(Function::vuna_telemetry_mp_get_counter_info, 8, 0));
  EXPECT_EQ(found()[0], std::string(63, 'n'));
  EXPECT_EQ(slots[0].algo_info, "algo");
  EXPECT_EQ(slots[0].counter_infos[0], "rx,");
  EXPECT_EQ(slots[1].counter_infos, (Texts{"", "", ""}));
  EXPECT_EQ(slots[2].counter_infos, (Texts{"rx, received", "", "tx, sent, plane 1"}));
}

// The flag that allows one backend per process is never reset. Each row therefore runs in the new
// process of a death test.
TEST(SdkLogDeathTest, IsRoutedOncePerProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  constexpr auto kCreate = Function::vuna_log_backend_create_with_file_sdk;
  struct Row {
    std::vector<const char*> words;
    std::vector<simulator::Fault> faults;
    std::string outcome;
  };
  const Row rows[] = {
      {{"Warning", "", "%s", "disable"},
       {},
       "sdk level 10;4Invalid SDK logs level: Warning;4Invalid SDK logs level: ;"
       "4Invalid SDK logs level: %s;"},
      {{"info", "info"},
       {failing(kCreate)},
       "4Could not create SDK logs: STATUS_5;7SDK logger already set;"},
      {{"info"}, {failing(kCreate, 1, 0)}, "4Could not create SDK logs: STATUS_0;"},
      {{"info"},
       {failing(Function::vuna_log_backend_set_sdk_level)},
       "sdk level 50;4Could not set SDK logs level 'info': STATUS_5;"},
  };
  for (const auto& row : rows) {
    const auto run = [&row] {
      test::FakeMachine machine;
      for (const auto& fault : row.faults) machine.sdk.scenario.faults.add(fault);
      machine.sdk.functions.vuna_log_backend_set_sdk_level = [](auto* backend, auto level) {
        std::fprintf(stderr, "sdk level %u;", level);
        return ::vuna_log_backend_set_sdk_level(backend, level);
      };
      const test::CapturedLog log;
      for (const char* word : row.words)
        Collector(test::options({{"multipath-sdk-log-level", word}}).get(), machine.surroundings());
      const std::string prefix = "[multipath] [setSDKLogs] ";
      for (const auto& line : log.lines())
        if (line.text.starts_with(prefix))
          std::fprintf(stderr, "%u%s;", line.level, line.text.c_str() + prefix.size());
      std::exit(0);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), testing::Eq(row.outcome));
  }
}

}  // namespace
}  // namespace tev::events::multipath
