// Correct and incorrect use of the functions, with and without faults.
#include <atomic>
#include <chrono>
#include <thread>

#include "tests/simulator/sdk.h"
#include "tests/support/threads.h"

namespace simulator_test {
namespace {

using ::testing::ElementsAre;

class Calls : public SimulatorTest {
 protected:
  // Two devices, the first with a slot that holds nothing before its counters.
  void loadFaults(const std::string& faults) {
    load(R"({'devices':[{'ibdev_name':'a b','slots':[{'status':18},
        {'counters':[{'text':'x','planes':3,'law':{'type':'ramp','per_sample':1}}]}]},
      {'ibdev_name':'b','slots':[{'counters':[{'text':'x'}]}]}],'faults':[)" +
         faults + "]}");
  }
};

TEST_F(Calls, AreTracedWithTheirPlaceAndResult) {
  loadFaults("{'function':'vuna_dev_as_devinfo','call':1}");
  vuna_telemetry_mp* const mp = start();
  EXPECT_EQ(counterText(mp, 1, 2), "x, plane 2");
  EXPECT_EQ(read(mp, 1, true).size(), 3U);
  EXPECT_EQ(sdk->vuna_dev_as_devinfo(dev), nullptr);
  EXPECT_NE(sdk->vuna_dev_as_devinfo(dev), nullptr);
  EXPECT_NE(sdk->vuna_error_get_name(3), nullptr);
  EXPECT_EQ(sdk->reported("vuna_dev_as_devinfo"), 2U);
  for (const std::string expected :
       {"vuna_devinfo_create_list - - 0", "vuna_telemetry_mp_get_counter_info a\\x20b 1/2 0",
        "vuna_telemetry_mp_get_and_clear_counters a\\x20b 1 0",
        "vuna_dev_as_devinfo a\\x20b - null fault", "vuna_error_get_name - - ok"})
    EXPECT_EQ(traced(expected.substr(0, expected.find(' '))).at(0), expected);
}

TEST_F(Calls, WhatAnOpenDelivers) {
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
    EXPECT_EQ(dev != before && dev != nullptr, opened) << fault;
    EXPECT_EQ(sdk->reported("opens"), opened) << fault;
    sdk->vuna_devinfo_destroy_list(list);
    // A device that came with a failure need not be closed; one that came late has to be.
    unload();
    EXPECT_EQ(traced("MISUSE").size(), opened && status == kVunaSuccess ? 1U : 0U) << fault;
  }
}

TEST_F(Calls, FaultsCountOnlyTheCallsOfTheirDevice) {
  loadFaults(R"(
    {'function':'vuna_dev_open','device':'b','call':2,'status':8},
    {'function':'vuna_dev_open','call':'every','device':'a b','status':9,'deliver':'result'},
    {'function':'vuna_dev_open','call':'every','device':'a b','status':10})");
  ASSERT_EQ(createList(), kVunaSuccess);
  std::vector<vuna_status> statuses;
  for (const int device : {0, 1, 0, 1, 1})
    statuses.push_back(sdk->vuna_dev_open(list[device], &dev));
  EXPECT_THAT(statuses, ElementsAre(9, 0, 9, 8, 0));
}

TEST_F(Calls, LatencyDelaysOneAndHoldsUpNoOther) {
  loadFaults("{'function':'vuna_telemetry_mp_get_counters','call':1,'latency_usec':300000}");
  vuna_telemetry_mp* const slow = start(0);
  vuna_telemetry_mp* const quick = start(1);
  const auto begin = std::chrono::steady_clock::now();
  const auto since = [&] { return std::chrono::steady_clock::now() - begin; };
  auto slow_took = since();
  std::thread reader([&] {
    read(slow, 1);
    slow_took = since();
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(30));
  for (int i = 0; i < 10; ++i) EXPECT_EQ(read(quick).size(), 1U);
  const auto quick_took = since();
  reader.join();
  EXPECT_GE(slow_took, std::chrono::milliseconds(300));
  EXPECT_LT(quick_took, slow_took);
}

// Each kind of misuse is refused if possible, and always counted.
TEST_F(Calls, MisuseIsNoticed) {
  loadFaults("");
  vuna_telemetry_mp* const mp = start();
  vuna_telemetry_mp* other = nullptr;
  std::uint32_t n = 0;
  std::uint8_t flag = 0;
  const Sdk& s = *sdk;
  const auto expect_refusal = [](vuna_status status) { EXPECT_NE(status, kVunaSuccess); };
  expect_refusal(s.vuna_telemetry_mp_start(mp));
  expect_refusal(s.vuna_telemetry_mp_get_algo_enable_status(mp, 1, &flag, nullptr));
  expect_refusal(s.vuna_telemetry_mp_create(nullptr, &other));
  s.vuna_telemetry_mp_stop(mp);
  expect_refusal(s.vuna_telemetry_mp_stop(mp));
  expect_refusal(s.vuna_telemetry_mp_get_counters(mp, 1, &n, &n));
  s.vuna_telemetry_mp_start(mp);
  s.vuna_telemetry_mp_destroy(mp);
  expect_refusal(s.vuna_telemetry_mp_get_algo_id(mp, 0, &n));
  s.vuna_telemetry_mp_create(dev, &other);
  s.vuna_dev_close(dev);
  expect_refusal(s.vuna_dev_close(dev));
  EXPECT_EQ(s.vuna_dev_as_devinfo(dev), nullptr);
  const vuna_devinfo* const info = list[0];
  vuna_devinfo** const old_list = list;
  s.vuna_devinfo_destroy_list(list);
  expect_refusal(s.vuna_devinfo_destroy_list(old_list));
  expect_refusal(s.vuna_telemetry_mp_cap_is_supported(info));
  EXPECT_EQ(s.reported("misuses"), 12U);
  EXPECT_EQ(createList(), kVunaSuccess);
  start();
  unload();
  EXPECT_THAT(
      traced("MISUSE"),
      ElementsAre("MISUSE vuna_telemetry_mp_start a\\x20b context is started",
                  "MISUSE vuna_telemetry_mp_get_algo_enable_status - an argument is null",
                  "MISUSE vuna_telemetry_mp_create - device is not open",
                  "MISUSE vuna_telemetry_mp_stop a\\x20b context is not started",
                  "MISUSE vuna_telemetry_mp_get_counters a\\x20b context is not started",
                  "MISUSE vuna_telemetry_mp_destroy a\\x20b context is started",
                  "MISUSE vuna_telemetry_mp_get_algo_id - context is not alive",
                  "MISUSE vuna_dev_close a\\x20b a context of the device is alive",
                  "MISUSE vuna_dev_close - device is not open",
                  "MISUSE vuna_dev_as_devinfo - device is not open",
                  "MISUSE vuna_devinfo_destroy_list - list is not alive",
                  "MISUSE vuna_telemetry_mp_cap_is_supported - device description is not alive",
                  "MISUSE unload a\\x20b context is alive", "MISUSE unload a\\x20b device is open",
                  "MISUSE unload - list is alive"));
}

TEST_F(Calls, LogHasTheLevelsThatWereAskedFor) {
  const std::string good = "{'devices':[]}";
  const std::string listed = "[vuna-sim] [info] listed 0 devices\n";
  const std::string error = "[vuna-sim] [error] vuna_dev_close: device is not open\n";
  const struct {
    std::string scenario;
    std::uint32_t level;
    vuna_status status;
    std::string log;
  } rows[] = {{good, 30, 0, error},
              {good, 50, 0, listed + error},
              {good, 71, 2, error},
              {"{}", 30, 0,
               "[vuna-sim] [error] scenario " + tree.path("scenario.json") +
                   ":1: a scenario has either \"devices\" or \"base\"\n" + error}};
  for (const auto& row : rows) {
    load(row.scenario);
    char* text = nullptr;
    std::size_t size = 0;
    std::FILE* const stream = open_memstream(&text, &size);
    vuna_log_backend* backend = nullptr;
    EXPECT_EQ(sdk->vuna_log_backend_create_with_file_sdk(stream, &backend), kVunaSuccess);
    EXPECT_EQ(sdk->vuna_log_backend_set_sdk_level(backend, row.level), row.status);
    createList();
    sdk->vuna_dev_close(dev);
    unload();
    std::fclose(stream);
    EXPECT_EQ(text, row.log) << row.level;
    std::free(text);
  }
}

// Many users at the same time, each with its own devices. One of them sometimes misuses the SDK.
TEST_F(Calls, MayComeFromManyThreads) {
  environment.set("VUNA_SIMULATOR_TRACE", {});
  loadFaults("");
  ASSERT_EQ(createList(), kVunaSuccess);
  std::atomic<int> wrong{0};
  tev::test::onThreads(4, [&](int) {
    for (int round = 0; round < 50; ++round) {
      vuna_dev* own = nullptr;
      vuna_telemetry_mp* mp = nullptr;
      wrong += sdk->vuna_dev_open(list[0], &own) || sdk->vuna_telemetry_mp_create(own, &mp) ||
               sdk->vuna_telemetry_mp_start(mp);
      for (std::uint32_t n = 0; n < 50; ++n) wrong += read(mp, 1) != Values{n, n, n};
      wrong += sdk->vuna_telemetry_mp_stop(mp) || sdk->vuna_telemetry_mp_destroy(mp) ||
               sdk->vuna_dev_close(own);
      sdk->vuna_dev_close(own);
    }
  });
  EXPECT_EQ(wrong, 0);
  for (const char* const name : {"opens", "closes", "misuses"})
    EXPECT_EQ(sdk->reported(name), 200U) << name;
}

}  // namespace
}  // namespace simulator_test
