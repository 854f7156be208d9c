// Correct and incorrect use of the functions, with and without faults.
#include "tests/simulator/sdk.h"

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
  EXPECT_EQ(vuna_dev_as_devinfo(dev), nullptr);
  EXPECT_NE(vuna_dev_as_devinfo(dev), nullptr);
  EXPECT_EQ(sdk.reported("vuna_dev_as_devinfo"), 2U);
  for (const std::string expected :
       {"vuna_devinfo_create_list - - 0", "vuna_telemetry_mp_get_counter_info a\\x20b 1/2 0",
        "vuna_dev_as_devinfo a\\x20b - null fault"})
    EXPECT_EQ(traced(expected.substr(0, expected.find(' '))).at(0), expected);
}

TEST_F(Calls, WhatAnOpenDelivers) {
  const struct {
    const char* fault;
    vuna_status status;
    bool touched, opened;
  } rows[] = {{"'status':7", 7, false, false},
              {"'status':7,'deliver':'result'", 7, true, true},
              {"'deliver':'nothing'", 0, true, false},
              {"'deliver':'untouched'", 0, false, false},
              {"'latency_usec':1", 0, true, true}};
  for (const auto& [fault, status, touched, opened] : rows) {
    loadFaults("{'function':'vuna_dev_open','call':1," + std::string(fault) + "}");
    ASSERT_EQ(createList(), kVunaSuccess);
    vuna_dev* const before = reinterpret_cast<vuna_dev*>(this);
    dev = before;
    EXPECT_EQ(vuna_dev_open(list[0], &dev), status) << fault;
    EXPECT_EQ(dev != before, touched) << fault;
    EXPECT_EQ(dev != before && dev != nullptr, opened) << fault;
    vuna_devinfo_destroy_list(list);
    // A device that came with a failure need not be closed.
    sdk.restart();
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
  for (const int device : {0, 1, 0, 1, 1}) statuses.push_back(vuna_dev_open(list[device], &dev));
  EXPECT_THAT(statuses, ElementsAre(9, 0, 9, 8, 0));
}

// Each kind of misuse is refused if possible, and always counted and logged.
TEST_F(Calls, MisuseIsNoticed) {
  loadFaults("");
  char* log = nullptr;
  std::size_t size = 0;
  std::FILE* const stream = open_memstream(&log, &size);
  vuna_log_backend* backend = nullptr;
  vuna_log_backend_create_with_file_sdk(stream, &backend);
  EXPECT_EQ(vuna_log_backend_set_sdk_level(backend, 30), kVunaSuccess);
  EXPECT_EQ(vuna_log_backend_set_sdk_level(backend, 71), 2U);
  vuna_telemetry_mp* const mp = start();
  vuna_telemetry_mp* other = nullptr;
  std::uint32_t n = 0;
  std::uint8_t flag = 0;
  EXPECT_NE(vuna_telemetry_mp_start(mp), kVunaSuccess);
  EXPECT_NE(vuna_telemetry_mp_get_algo_enable_status(mp, 1, &flag, nullptr), kVunaSuccess);
  EXPECT_NE(vuna_telemetry_mp_create(nullptr, &other), kVunaSuccess);
  vuna_telemetry_mp_stop(mp);
  EXPECT_NE(vuna_telemetry_mp_stop(mp), kVunaSuccess);
  EXPECT_NE(vuna_telemetry_mp_get_counters(mp, 1, &n, &n), kVunaSuccess);
  vuna_telemetry_mp_start(mp);
  vuna_telemetry_mp_destroy(mp);
  EXPECT_NE(vuna_telemetry_mp_get_algo_id(mp, 0, &n), kVunaSuccess);
  vuna_telemetry_mp_create(dev, &other);
  vuna_dev_close(dev);
  EXPECT_NE(vuna_dev_close(dev), kVunaSuccess);
  EXPECT_EQ(vuna_dev_as_devinfo(dev), nullptr);
  const vuna_devinfo* const info = list[0];
  vuna_devinfo_destroy_list(list);
  EXPECT_NE(vuna_devinfo_destroy_list(list), kVunaSuccess);
  EXPECT_NE(vuna_telemetry_mp_cap_is_supported(info), kVunaSuccess);
  EXPECT_EQ(sdk.reported("misuses"), 12U);
  EXPECT_EQ(createList(), kVunaSuccess);
  start();
  sdk.restart();
  EXPECT_EQ(traced("MISUSE").size(), 12U + 3);  // and a context, a device and a list are left
  EXPECT_EQ(traced("MISUSE")[0], "MISUSE vuna_telemetry_mp_start a\\x20b context is started");
  std::fclose(stream);
  EXPECT_THAT(log, testing::StartsWith("[vuna-sim] [error] vuna_telemetry_mp_start"));
  std::free(log);
}

}  // namespace
}  // namespace simulator_test
