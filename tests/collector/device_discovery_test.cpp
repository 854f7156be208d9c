#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <utility>

#include "tests/support/captured_log.h"
#include "tests/support/fake_machine.h"
#include "tests/support/options.h"

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
    for (const auto& dev : collector.devices()) {
      names.push_back(dev.name);
      slots.push_back(dev.slot_info);
    }
    return names;
  }

  void expectLogged(std::uint32_t level, const std::string& text) {
    EXPECT_EQ(log.count(level, "[multipath] " + text), 1u) << text;
  }

  std::vector<simulator::Device>& devices = sdk.scenario.devices;
  std::vector<SlotInfo> slots;
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
  expectLogged(7, "Skipping device eth3 as it is not in the configured device list");
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
    simulator::Fault fault;
    const char* line;
  };
  const Row rows[] = {
      {failing(Function::vuna_dev_open), "Could not open device #0: STATUS_5"},
      {failing(Function::vuna_dev_open, 1, 0), "Invalid device #0"},
      {failing(Function::vuna_dev_as_devinfo), "Could not get device #0"},
      {failing(Function::vuna_devinfo_get_ibdev_name),
       "Could not get device name of device #0 (STATUS_5)"},
      {failing(Function::vuna_telemetry_mp_create),
       "Could not create vuna context for device eth3: STATUS_5"},
      {failing(Function::vuna_telemetry_mp_create, 1, 0), "Invalid MP for device eth3"},
      {failing(Function::vuna_telemetry_mp_start), "Could not start MP for device eth3: STATUS_5"},
      // The second description is read by the search for the slot.
      {failing(Function::vuna_dev_as_devinfo, 2), "Could not get device info for device eth3"},
      {failing(Function::vuna_telemetry_mp_cap_get_max_algo_slots),
       "Could not get max algo slots for device eth3: STATUS_5"},
      {failing(Function::vuna_telemetry_mp_get_algo_major_version),
       "Could not get algo major version for slot 0 of device eth3: STATUS_5"},
      {failing(Function::vuna_telemetry_mp_get_algo_minor_version),
       "Could not get algo minor version for slot 0 of device eth3: STATUS_5"},
      {failing(Function::vuna_telemetry_mp_cap_get_max_algo_info_len),
       "Could not get max algo info len for device eth3: STATUS_5"},
      {failing(Function::vuna_telemetry_mp_cap_get_max_algo_info_len, 1, 0),
       "Max algo info len for device eth3 is 0"},
      {failing(Function::vuna_telemetry_mp_get_algo_info),
       "Could not get algo info for slot 0 of device eth3: STATUS_5"},
      {failing(Function::vuna_telemetry_mp_get_num_counters),
       "Could not get num counters for slot 0 of device eth3: STATUS_5"},
      {failing(Function::vuna_telemetry_mp_cap_get_max_counter_info_len),
       "Could not get max counter info len for device eth3: STATUS_5"},
      {failing(Function::vuna_telemetry_mp_get_counter_info, 2),
       "Could not get counter info for counter 1 of slot 0 of device eth3: STATUS_5"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.line);
    sdk.scenario.faults = {};
    sdk.scenario.faults.add(row.fault);
    log.clear();
    EXPECT_EQ(found(), (Texts{"eth1", "rdma2"}));
    expectLogged(4, row.line);
    EXPECT_EQ(log.contains(4, "[multipath] Could not set active algo slot info for device eth3"),
              sdk.reported("starts") == 3);
    EXPECT_TRUE(sdk.balanced());
  }
  EXPECT_TRUE(log.contains(4, "[multipath] Could not fill up slot info for device eth3"));
}

TEST_F(DeviceDiscovery, TheFirstSlotThatIsFullyOnWins) {
  struct Row {
    simulator::Slot slot;
    std::uint32_t level;
    const char* line;
    bool ends_the_search = false;
  };
  const Row rows[] = {
      {{.id_status = 18}, 7, "slot 0 of device eth3 is empty"},
      {{.enable_status = 21}, 7, "slot 0 of device eth3 is invalid"},
      {{.algo_enabled = false},
       7,
       "Found active algo slot 0 for device eth3 but algo is not enabled"},
      {{.counters_enabled = false},
       4,
       "Found active algo slot 0 for device eth3 but counters are not enabled"},
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
  devices[0].slots.clear();
  EXPECT_EQ(found()[0], "eth1");
  expectLogged(4, "No active algo slot found for device eth3");
}

TEST_F(DeviceDiscovery, AHandleCountsWhateverTheStatusAndAListOnlyWithASuccess) {
  const auto deliver_with_failure = [this](Function function) {
    auto fault = failing(function);
    fault.deliver = simulator::Fault::Deliver::result;
    sdk.scenario.faults.add(fault);
  };
  deliver_with_failure(Function::vuna_dev_open);
  EXPECT_EQ(found()[0], "eth3");
  expectLogged(4, "Could not open device #0: STATUS_5");

  deliver_with_failure(Function::vuna_devinfo_create_list);
  EXPECT_EQ(found(), Texts());
  expectLogged(7, "Failed to create device list: STATUS_5");
  EXPECT_EQ(sdk.reported("vuna_devinfo_destroy_list"), 0u);

  // A count without a list, with any status.
  sdk.functions.vuna_devinfo_create_list = [](auto*** list, auto* count) {
    *list = nullptr;
    *count = 3;
    return kVunaSuccess;
  };
  EXPECT_EQ(found(), Texts());
  EXPECT_EQ(sdk.reported("vuna_devinfo_destroy_list"), 0u);
}

TEST_F(DeviceDiscovery, AnAnswerThatCannotBeUsedCostsItsDeviceAlone) {
  devices[0].slots[0].counters[1].text = "tx, sent, plane 99999999999999999999";
  EXPECT_EQ(found(), (Texts{"eth1", "rdma2"}));
  expectLogged(4, "Skipping device eth3: the plane number of a counter is out of range");
  expectLogged(4, "Could not set active algo slot info for device eth3");
  EXPECT_TRUE(sdk.balanced());
  for (auto& device : devices) device.slots = devices[0].slots;
  EXPECT_EQ(found(), Texts());
}

// A sanitizer refuses allocations of these sizes. Without a sanitizer, the address space is
// limited.
class LimitedAddressSpace {
 public:
  LimitedAddressSpace() {
    getrlimit(RLIMIT_AS, &before_);
    rlimit limited = before_;
    limited.rlim_cur = rlim_t{2} << 30;
    if (!SANITIZED) setrlimit(RLIMIT_AS, &limited);
  }
  ~LimitedAddressSpace() { setrlimit(RLIMIT_AS, &before_); }
  LimitedAddressSpace(const LimitedAddressSpace&) = delete;
  LimitedAddressSpace& operator=(const LimitedAddressSpace&) = delete;

 private:
  rlimit before_{};
};

TEST_F(DeviceDiscovery, SizesBeyondMemoryCostTheirDeviceAlone) {
  struct Row {
    std::uint32_t simulator::Device::*size;
    const char* line;
  };
  const Row rows[] = {
      {&simulator::Device::max_algo_info_len, "no memory for a text of 4294967295 bytes"},
      {&simulator::Device::max_counter_info_len, "no memory for a text of 4294967295 bytes"},
      {&simulator::Device::max_num_counters, "no memory for the 4294967295 counters of a read"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.line);
    const auto size = std::exchange(devices[1].*row.size, UINT32_MAX);
    const LimitedAddressSpace limited;
    EXPECT_EQ(found(), (Texts{"eth3", "rdma2"}));
    EXPECT_EQ(log.count(4, std::string("[multipath] Skipping device eth1: ") + row.line), 1u);
    EXPECT_TRUE(sdk.balanced());
    devices[1].*row.size = size;
    log.clear();
  }
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

TEST_F(DeviceDiscovery, LooksAtNoMoreThan256SlotsAndCounters) {
  devices[0].slots = {{.id_status = 18}};
  devices[0].max_algo_slots = 0xffffffff;
  devices[1].slots[0].counters.resize(256);
  devices[1].slots[0].declared_counters = 100'000;
  EXPECT_EQ(found(), (Texts{"eth1", "rdma2"}));
  EXPECT_EQ(sdk.reported("vuna_telemetry_mp_get_algo_id"), 256u + 2);
  EXPECT_EQ(slots[0].counter_infos.size(), 256u);
  expectLogged(4, "Device eth3 reports 4294967295 algo slots, looking at the first 256");
  expectLogged(4, "Slot 0 of device eth1 declares 100000 counters, looking at the first 256");
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
      {{"debug", "trace"}, {}, "sdk level 60;7SDK logger already set;"},
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
