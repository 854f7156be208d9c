// The functions, rightly used and wrongly, with and without faults.
#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

#include "tests/simulator/sdk.h"
#include "tests/support/threads.h"

namespace simulator_test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

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

TEST_F(Calls, EachCanFailAndIsTraced) {
  std::string faults;
#define F(name, result, parameters) \
  faults += "{'function':'" #name "','call':2,'status':77,'deliver':'untouched'},";
  VUNA_FUNCTIONS(F)
#undef F
  faults.pop_back();
  loadFaults(faults);
  const Sdk& s = *sdk;
  vuna_telemetry_mp* mp = nullptr;
  vuna_devinfo** devices = nullptr;
  std::uint32_t n = 0, values[3];
  std::uint8_t flag = 0;
  char text[64] = "";
  vuna_log_backend* backend = nullptr;
  // In the order in which they are used, with what the trace tells of the place.
  using Call = std::pair<std::string, std::function<vuna_status()>>;
#define CALL(place, name, ...) Call(#name place, [&] { return s.name(__VA_ARGS__); })
  const Call calls[] = {
      {"vuna_error_get_name - -", [&] { return s.vuna_error_get_name(3) ? 0U : 77U; }},
      CALL(" - -", vuna_log_backend_create_with_file_sdk, stderr, &backend),
      CALL(" - -", vuna_log_backend_set_sdk_level, backend, 10),
      CALL(" - -", vuna_devinfo_create_list, &devices, &n),
      CALL(" a\\x20b -", vuna_devinfo_get_ibdev_name, devices[0], text, 64),
      CALL(" a\\x20b -", vuna_telemetry_mp_cap_is_supported, devices[0]),
      CALL(" a\\x20b -", vuna_dev_open, devices[0], &dev),
      {"vuna_dev_as_devinfo a\\x20b -", [&] { return s.vuna_dev_as_devinfo(dev) ? 0U : 77U; }},
      CALL(" a\\x20b -", vuna_telemetry_mp_cap_get_max_algo_slots, devices[0], &n),
      CALL(" a\\x20b -", vuna_telemetry_mp_cap_get_max_algo_info_len, devices[0], &n),
      CALL(" a\\x20b -", vuna_telemetry_mp_cap_get_max_counter_info_len, devices[0], &n),
      CALL(" a\\x20b -", vuna_telemetry_mp_cap_get_max_num_counters, devices[0], &n),
      CALL(" a\\x20b -", vuna_telemetry_mp_create, dev, &mp),
      CALL(" a\\x20b -", vuna_telemetry_mp_start, mp),
      CALL(" a\\x20b 1", vuna_telemetry_mp_get_algo_id, mp, 1, &n),
      CALL(" a\\x20b 1", vuna_telemetry_mp_get_algo_enable_status, mp, 1, &flag, &flag),
      CALL(" a\\x20b 1", vuna_telemetry_mp_get_algo_major_version, mp, 1, &n),
      CALL(" a\\x20b 1", vuna_telemetry_mp_get_algo_minor_version, mp, 1, &n),
      CALL(" a\\x20b 1", vuna_telemetry_mp_get_algo_info, mp, 1, text),
      CALL(" a\\x20b 1", vuna_telemetry_mp_get_num_counters, mp, 1, &n),
      CALL(" a\\x20b 1/2", vuna_telemetry_mp_get_counter_info, mp, 1, 2, text),
      CALL(" a\\x20b 1", vuna_telemetry_mp_get_counters, mp, 1, &n, values),
      CALL(" a\\x20b 1", vuna_telemetry_mp_get_and_clear_counters, mp, 1, &n, values),
      CALL(" a\\x20b -", vuna_telemetry_mp_stop, mp),
      CALL(" a\\x20b -", vuna_telemetry_mp_destroy, mp),
      CALL(" a\\x20b -", vuna_dev_close, dev),
      CALL(" - -", vuna_devinfo_destroy_list, devices),
  };
#undef CALL
  for (const auto& [expected, make] : calls) {
    const std::string name = expected.substr(0, expected.find(' '));
    const bool pointer = name == "vuna_error_get_name" || name == "vuna_dev_as_devinfo";
    ASSERT_EQ(make(), kVunaSuccess) << name;
    EXPECT_EQ(traced(name), (std::vector{expected + (pointer ? " ok" : " 0")}));
    EXPECT_EQ(make(), 77U) << name;
    EXPECT_TRUE(traced(name).at(1).ends_with(pointer ? " null fault" : " 77 fault"));
    EXPECT_EQ(s.reported(name), 2U);
  }
  unload();
  EXPECT_THAT(traced("MISUSE"), IsEmpty());
  EXPECT_THAT(traced("UNLOAD"), ElementsAre("UNLOAD - - 0"));
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

// What was acquired by calls that failed is nobody's: neither a start that need not be stopped nor
// a context that need not be destroyed is misuse.
TEST_F(Calls, FailedOnesAcquireNothingAndReleaseAllTheSame) {
  loadFaults(R"(
    {'function':'vuna_devinfo_create_list','call':2,'status':5,'deliver':'result'},
    {'function':'vuna_telemetry_mp_create','call':2,'status':5,'deliver':'result'},
    {'function':'vuna_telemetry_mp_start','call':2,'status':5,'deliver':'result'},
    {'function':'vuna_telemetry_mp_stop','call':'every','status':5},
    {'function':'vuna_telemetry_mp_destroy','call':'every','status':5},
    {'function':'vuna_dev_close','call':'every','status':5},
    {'function':'vuna_devinfo_destroy_list','call':'every','status':5})");
  vuna_telemetry_mp* const first = start();
  vuna_devinfo** other_list = nullptr;
  EXPECT_EQ(sdk->vuna_devinfo_create_list(&other_list, &count), 5U);
  vuna_telemetry_mp* other = nullptr;
  EXPECT_EQ(sdk->vuna_telemetry_mp_create(dev, &other), 5U);
  EXPECT_EQ(sdk->vuna_telemetry_mp_create(dev, &other), kVunaSuccess);
  EXPECT_EQ(sdk->vuna_telemetry_mp_start(other), 5U);
  EXPECT_EQ(sdk->vuna_telemetry_mp_destroy(other), 5U);
  giveBack(first);
  for (const char* name : {"stops", "closes", "lists_destroyed"})
    EXPECT_EQ(sdk->reported(name), 1U) << name;
  unload();
  EXPECT_THAT(traced("MISUSE"), IsEmpty());
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

// Each kind of wrong use is refused where it can be, and always noticed.
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

// Many users at once, each with devices of its own; one of them is wrong now and then.
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
