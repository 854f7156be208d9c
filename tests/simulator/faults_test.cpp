#include <chrono>
#include <filesystem>
#include <functional>
#include <thread>

#include "tests/simulator/sdk.h"

namespace simulator_test {
namespace {

constexpr const char* kDevices = R"('devices':[
  {'ibdev_name':'a','slots':[{'counters':[{'text':'x','law':{'type':'constant','value':1}}]}]},
  {'ibdev_name':'b','slots':[{'counters':[{'text':'x'}]}]}])";

class Faults : public SimulatorTest {
 protected:
  void loadFaults(const std::string& faults) {
    load(std::string("{") + kDevices + ",'faults':[" + faults + "]}");
  }
};

constexpr vuna_status kNull = 77;  // of the two functions that return a pointer

TEST_F(Faults, EachFunctionCanFailAtItsSecondCall) {
#define F(name, result, parameters) #name,
  for (const std::string function : {VUNA_FUNCTIONS(F)}) {
#undef F
    std::filesystem::remove(trace_path());
    loadFaults("{'function':'" + function + "','call':2,'status':77}");
    const Sdk& s = *sdk;
    vuna_telemetry_mp* mp = nullptr;
    vuna_dev* device = nullptr;
    vuna_devinfo** devices = nullptr;
    std::uint32_t n = 0;
    std::uint8_t flag = 0;
    char text[64] = "";
    vuna_log_backend* backend = nullptr;
    // Everything in the order in which it is used, twice over.
#define CALL(name, ...) Call(#name, [&] { return s.name(__VA_ARGS__); })
    using Call = std::pair<std::string, std::function<vuna_status()>>;
    const Call calls[] = {
        {"vuna_error_get_name", [&] { return s.vuna_error_get_name(1) ? 0 : kNull; }},
        CALL(vuna_log_backend_create_with_file_sdk, stderr, &backend),
        CALL(vuna_log_backend_set_sdk_level, backend, 10),
        CALL(vuna_devinfo_create_list, &devices, &n),
        CALL(vuna_devinfo_get_ibdev_name, devices[0], text, 64),
        CALL(vuna_telemetry_mp_cap_is_supported, devices[0]),
        CALL(vuna_dev_open, devices[0], &device),
        {"vuna_dev_as_devinfo", [&] { return s.vuna_dev_as_devinfo(device) ? 0 : kNull; }},
        CALL(vuna_telemetry_mp_cap_get_max_algo_slots, devices[0], &n),
        CALL(vuna_telemetry_mp_cap_get_max_algo_info_len, devices[0], &n),
        CALL(vuna_telemetry_mp_cap_get_max_counter_info_len, devices[0], &n),
        CALL(vuna_telemetry_mp_cap_get_max_num_counters, devices[0], &n),
        CALL(vuna_telemetry_mp_create, device, &mp),
        CALL(vuna_telemetry_mp_start, mp),
        CALL(vuna_telemetry_mp_get_algo_id, mp, 0, &n),
        CALL(vuna_telemetry_mp_get_algo_enable_status, mp, 0, &flag, &flag),
        CALL(vuna_telemetry_mp_get_algo_major_version, mp, 0, &n),
        CALL(vuna_telemetry_mp_get_algo_minor_version, mp, 0, &n),
        CALL(vuna_telemetry_mp_get_algo_info, mp, 0, text),
        CALL(vuna_telemetry_mp_get_num_counters, mp, 0, &n),
        CALL(vuna_telemetry_mp_get_counter_info, mp, 0, 0, text),
        CALL(vuna_telemetry_mp_get_counters, mp, 0, &n, &n),
        CALL(vuna_telemetry_mp_get_and_clear_counters, mp, 0, &n, &n),
        CALL(vuna_telemetry_mp_stop, mp),
        CALL(vuna_telemetry_mp_destroy, mp),
        CALL(vuna_dev_close, device),
        CALL(vuna_devinfo_destroy_list, devices),
    };
    bool failed = false;
    for (int round = 1; round <= 2 && !failed; ++round)
      for (const auto& [name, call] : calls) {
        failed = name == function && round == 2;
        ASSERT_EQ(call(), failed ? 77U : kVunaSuccess) << name << " with a fault in " << function;
        if (failed) break;  // without what the call should have brought, the rest cannot be used
      }
    EXPECT_EQ(s.reported("misuses"), 0U) << function;
    const auto lines = traced(function);
    ASSERT_EQ(lines.size(), 2U) << function;
    EXPECT_EQ(lines[0].find("fault"), std::string::npos);
    EXPECT_NE(lines[1].find(" fault"), std::string::npos);
  }
}

TEST_F(Faults, WhatAnOpenDelivers) {
  const struct {
    const char* fault;
    vuna_status status;
    bool touched, opened;
  } rows[] = {{"'status':7", 7, false, false},
              {"'status':7,'deliver':'nothing'", 7, true, false},
              {"'status':7,'deliver':'result'", 7, true, true},
              {"'deliver':'nothing'", 0, true, false},
              {"'deliver':'untouched'", 0, false, false},
              {"'latency_usec':1", 0, true, true}};
  for (const auto& [fault, status, touched, opened] : rows) {
    loadFaults("{'function':'vuna_dev_open','call':1," + std::string(fault) + "}");
    ASSERT_EQ(createList(), kVunaSuccess);
    vuna_dev* const before = reinterpret_cast<vuna_dev*>(this);
    dev = before;
    EXPECT_EQ(sdk->vuna_dev_open(list[0], &dev), status) << fault;
    EXPECT_EQ(dev != before, touched) << fault;
    EXPECT_EQ(sdk->reported("opens"), opened) << fault;
    EXPECT_EQ(dev != before && dev != nullptr, opened) << fault;
    EXPECT_TRUE(!opened || sdk->vuna_dev_as_devinfo(dev)) << fault;
    sdk->vuna_devinfo_destroy_list(list);
    // A device that came with a failure need not be closed; one that came late has to be.
    unload();
    EXPECT_EQ(traced("MISUSE").size(), opened && status == kVunaSuccess ? 1U : 0U) << fault;
  }
}

TEST_F(Faults, SuccessWithNothingBehindIt) {
  loadFaults(R"(
    {'function':'vuna_devinfo_create_list','call':2,'deliver':'nothing'},
    {'function':'vuna_telemetry_mp_create','call':2,'deliver':'nothing'},
    {'function':'vuna_dev_as_devinfo','call':2},
    {'function':'vuna_telemetry_mp_get_num_counters','call':'every','deliver':300},
    {'function':'vuna_telemetry_mp_cap_get_max_counter_info_len','call':1,'deliver':3},
    {'function':'vuna_telemetry_mp_get_counters','call':2,'deliver':'nothing'},
    {'function':'vuna_telemetry_mp_get_counters','call':3,'deliver':4000000000})");
  vuna_telemetry_mp* mp = start();
  vuna_devinfo** no_list = list;
  EXPECT_EQ(sdk->vuna_devinfo_create_list(&no_list, &count), kVunaSuccess);
  EXPECT_EQ(no_list, nullptr);
  EXPECT_EQ(count, 0U);
  EXPECT_EQ(sdk->vuna_devinfo_destroy_list(no_list), kVunaSuccess);

  vuna_telemetry_mp* no_context = mp;
  EXPECT_EQ(sdk->vuna_telemetry_mp_create(dev, &no_context), kVunaSuccess);
  EXPECT_EQ(no_context, nullptr);
  EXPECT_NE(sdk->vuna_dev_as_devinfo(dev), nullptr);
  EXPECT_EQ(sdk->vuna_dev_as_devinfo(dev), nullptr);

  EXPECT_EQ(number(sdk->vuna_telemetry_mp_get_num_counters, mp, 0), 300U);

  EXPECT_EQ(read(mp).size(), 1U);
  std::uint32_t filled = 9;
  std::uint32_t values[2] = {5, 5};
  EXPECT_EQ(sdk->vuna_telemetry_mp_get_counters(mp, 0, &filled, values), kVunaSuccess);
  EXPECT_EQ(filled, 0U);
  EXPECT_EQ(sdk->vuna_telemetry_mp_get_counters(mp, 0, &filled, values), kVunaSuccess);
  EXPECT_EQ(filled, 4'000'000'000U);
  EXPECT_EQ(values[0], 5U);  // neither of the two filled anything

  // The text of a counter keeps to the length that was told in the fault.
  const vuna_devinfo* const info = sdk->vuna_dev_as_devinfo(dev);
  EXPECT_EQ(number(sdk->vuna_telemetry_mp_cap_get_max_counter_info_len, info), 3U);
  giveBack(mp);
  EXPECT_EQ(sdk->reported("misuses"), 0U);
}

TEST_F(Faults, CountOnlyTheCallsOfTheirDevice) {
  loadFaults(R"(
    {'function':'vuna_dev_open','device':'b','call':2,'status':8},
    {'function':'vuna_dev_open','call':'every','device':'a','status':9,'deliver':'result'},
    {'function':'vuna_dev_open','call':'every','device':'a','status':10})");
  ASSERT_EQ(createList(), kVunaSuccess);
  std::vector<vuna_status> statuses;
  for (const std::uint32_t device : {0U, 1U, 0U, 1U, 1U})
    statuses.push_back(sdk->vuna_dev_open(list[device], &dev));
  EXPECT_EQ(statuses, (std::vector<vuna_status>{9, 0, 9, 8, 0}));
}

TEST_F(Faults, FailedReleasesReleaseAllTheSame) {
  loadFaults(R"(
    {'function':'vuna_telemetry_mp_stop','call':'every','status':5},
    {'function':'vuna_telemetry_mp_destroy','call':'every','status':5},
    {'function':'vuna_dev_close','call':'every','status':5},
    {'function':'vuna_devinfo_destroy_list','call':'every','status':5})");
  giveBack(start());
  for (const char* name : {"stops", "destroys", "closes", "lists_destroyed"})
    EXPECT_EQ(sdk->reported(name), 1U) << name;
  unload();
  EXPECT_TRUE(traced("MISUSE").empty());
}

// What was acquired by calls that failed is nobody's: neither a start that need not be stopped nor
// a context that need not be destroyed is misuse.
TEST_F(Faults, HandlesOfFailedCallsAreNobodysToGiveBack) {
  loadFaults(R"(
    {'function':'vuna_devinfo_create_list','call':2,'status':5,'deliver':'result'},
    {'function':'vuna_telemetry_mp_create','call':2,'status':5,'deliver':'result'},
    {'function':'vuna_telemetry_mp_start','call':2,'status':5,'deliver':'result'})");
  vuna_telemetry_mp* const first = start();
  vuna_devinfo** other_list = nullptr;
  EXPECT_EQ(sdk->vuna_devinfo_create_list(&other_list, &count), 5U);
  vuna_telemetry_mp* second = nullptr;
  EXPECT_EQ(sdk->vuna_telemetry_mp_create(dev, &second), 5U);
  ASSERT_NE(second, nullptr);
  vuna_telemetry_mp* third = nullptr;
  EXPECT_EQ(sdk->vuna_telemetry_mp_create(dev, &third), kVunaSuccess);
  EXPECT_EQ(sdk->vuna_telemetry_mp_start(third), 5U);
  EXPECT_EQ(sdk->vuna_telemetry_mp_destroy(third), kVunaSuccess);
  giveBack(first);
  unload();
  EXPECT_TRUE(traced("MISUSE").empty()) << trace();
}

TEST_F(Faults, LatencyDelaysOneCallAndHoldsUpNoOther) {
  loadFaults(
      "{'function':'vuna_telemetry_mp_get_counters','device':'a','call':1,'latency_usec':300000}");
  vuna_telemetry_mp* const slow = start(0);
  vuna_telemetry_mp* const quick = start(1);
  const auto begin = std::chrono::steady_clock::now();
  const auto since = [&] { return std::chrono::steady_clock::now() - begin; };
  auto slow_took = since();
  std::thread reader([&] {
    std::uint32_t filled = 0, value = 0;
    sdk->vuna_telemetry_mp_get_counters(slow, 0, &filled, &value);
    slow_took = since();
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(30));
  for (int i = 0; i < 10; ++i) EXPECT_EQ(read(quick).size(), 1U);
  const auto quick_took = since();
  reader.join();
  EXPECT_GE(slow_took, std::chrono::milliseconds(300));
  EXPECT_LT(quick_took, slow_took);
}

}  // namespace
}  // namespace simulator_test
