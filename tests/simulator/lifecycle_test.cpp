#include <gmock/gmock.h>

#include <atomic>
#include <filesystem>
#include <functional>

#include "tests/simulator/sdk.h"
#include "tests/support/threads.h"

namespace simulator_test {
namespace {

using ::testing::ElementsAre;

constexpr const char* kOneDevice = R"({'devices':[{'ibdev_name':'a b','slots':[{'status':18},
  {'counters':[{'text':'x','planes':3,'law':{'type':'ramp','per_sample':1}}]}]}]})";

class Lifecycle : public SimulatorTest {};

TEST_F(Lifecycle, TraceTellsEachCall) {
  load(kOneDevice);
  vuna_telemetry_mp* const mp = start();
  std::uint32_t number = 0;
  char text[32];
  sdk->vuna_telemetry_mp_get_algo_id(mp, 0, &number);
  sdk->vuna_telemetry_mp_get_counter_info(mp, 1, 2, text);
  read(mp, 1);
  EXPECT_NE(sdk->vuna_dev_as_devinfo(dev), nullptr);
  sdk->vuna_error_get_name(3);
  giveBack(mp);
  unload();
  EXPECT_EQ(trace(),
            "vuna_devinfo_create_list - - 0\n"
            "vuna_dev_open a\\x20b - 0\n"
            "vuna_telemetry_mp_create a\\x20b - 0\n"
            "vuna_telemetry_mp_start a\\x20b - 0\n"
            "vuna_telemetry_mp_get_algo_id a\\x20b 0 18\n"
            "vuna_telemetry_mp_get_counter_info a\\x20b 1/2 0\n"
            "vuna_telemetry_mp_get_counters a\\x20b 1 0\n"
            "vuna_dev_as_devinfo a\\x20b - ok\n"
            "vuna_error_get_name - - ok\n"
            "vuna_telemetry_mp_stop a\\x20b - 0\n"
            "vuna_telemetry_mp_destroy a\\x20b - 0\n"
            "vuna_dev_close a\\x20b - 0\n"
            "vuna_devinfo_destroy_list - - 0\n"
            "UNLOAD - - 0\n");
}

// Each kind of wrong use is refused where it can be, and always noticed.
TEST_F(Lifecycle, MisuseIsNoticed) {
  using Row = std::pair<const char*, std::function<vuna_status(vuna_telemetry_mp*)>>;
  constexpr vuna_status kDone = 1;  // of calls that go through all the same
  vuna_devinfo** old_list = nullptr;
  std::uint32_t n = 0;
  std::uint8_t flag = 0;
  vuna_telemetry_mp* other = nullptr;
  const Row rows[] = {
      {"vuna_dev_close - device is not open",
       [&](auto* mp) { return giveBack(mp), sdk->vuna_dev_close(dev); }},
      {"vuna_dev_as_devinfo - device is not open",
       [&](auto* mp) { return giveBack(mp), sdk->vuna_dev_as_devinfo(dev) ? 0U : 1U; }},
      {"vuna_telemetry_mp_create - device is not open",
       [&](auto*) { return sdk->vuna_telemetry_mp_create(nullptr, &other); }},
      {"vuna_telemetry_mp_start a\\x20b context is started",
       [&](auto* mp) { return sdk->vuna_telemetry_mp_start(mp); }},
      {"vuna_telemetry_mp_stop a\\x20b context is not started",
       [&](auto* mp) { return sdk->vuna_telemetry_mp_stop(mp), sdk->vuna_telemetry_mp_stop(mp); }},
      {"vuna_telemetry_mp_get_counters a\\x20b context is not started",
       [&](auto* mp) {
         sdk->vuna_telemetry_mp_stop(mp);
         return sdk->vuna_telemetry_mp_get_counters(mp, 1, &n, &n);
       }},
      {"vuna_telemetry_mp_destroy a\\x20b context is started",
       [&](auto* mp) { return sdk->vuna_telemetry_mp_destroy(mp), kDone; }},
      {"vuna_telemetry_mp_get_algo_id - context is not alive",
       [&](auto* mp) { return giveBack(mp), sdk->vuna_telemetry_mp_get_algo_id(mp, 0, &n); }},
      {"vuna_dev_close a\\x20b a context of the device is alive",
       [&](auto* mp) { return sdk->vuna_telemetry_mp_stop(mp), sdk->vuna_dev_close(dev), kDone; }},
      {"vuna_telemetry_mp_cap_is_supported - device description is not alive",
       [&](auto*) {
         const vuna_devinfo* const info = list[0];
         sdk->vuna_devinfo_destroy_list(list);
         return sdk->vuna_telemetry_mp_cap_is_supported(info);
       }},
      {"vuna_devinfo_destroy_list - list is not alive",
       [&](auto* mp) { return giveBack(mp), sdk->vuna_devinfo_destroy_list(old_list); }},
      {"vuna_telemetry_mp_get_algo_enable_status - an argument is null",
       [&](auto* mp) {
         return sdk->vuna_telemetry_mp_get_algo_enable_status(mp, 1, &flag, nullptr);
       }},
  };
  for (const auto& [expected, act] : rows) {
    load(kOneDevice);
    vuna_telemetry_mp* const mp = start();
    old_list = list;
    EXPECT_NE(act(mp), kVunaSuccess) << expected;
    EXPECT_GE(sdk->reported("misuses"), 1U) << expected;
    EXPECT_EQ(traced("MISUSE").front(), std::string("MISUSE ") + expected);
    std::filesystem::remove(trace_path());
  }
}

TEST_F(Lifecycle, UnloadingTellsWhatWasLeftAlive) {
  load(kOneDevice);
  start();
  unload();
  EXPECT_THAT(traced("MISUSE"),
              ElementsAre("MISUSE unload a\\x20b context is alive",
                          "MISUSE unload a\\x20b device is open", "MISUSE unload - list is alive"));
}

TEST_F(Lifecycle, LogHasTheLevelsThatWereAskedFor) {
  const std::string error = "[vuna-sim] [error] vuna_dev_close: device is not open\n";
  const struct {
    std::uint32_t level;
    vuna_status status;
    std::string log;
  } rows[] = {{10, 0, ""},
              {30, 0, error},
              {50, 0, "[vuna-sim] [info] listed 1 devices\n" + error},
              {71, 2, error}};
  for (const auto& row : rows) {
    load(kOneDevice);
    const std::string log = logged([&](vuna_log_backend* backend) {
      EXPECT_EQ(sdk->vuna_log_backend_set_sdk_level(backend, row.level), row.status);
      EXPECT_EQ(createList(), kVunaSuccess);
      sdk->vuna_dev_close(dev);
    });
    EXPECT_EQ(log, row.log) << row.level;
  }
}

// Many users at once, each with devices of its own; one of them is wrong now and then.
TEST_F(Lifecycle, CallsMayComeFromManyThreads) {
  unsetenv("VUNA_SIMULATOR_TRACE");
  load(kOneDevice);
  ASSERT_EQ(createList(), kVunaSuccess);
  std::atomic<int> wrong{0};
  tev::test::onThreads(4, [&](int) {
    for (int round = 0; round < 50; ++round) {
      vuna_dev* own = nullptr;
      vuna_telemetry_mp* mp = nullptr;
      wrong += sdk->vuna_dev_open(list[0], &own) || sdk->vuna_telemetry_mp_create(own, &mp) ||
               sdk->vuna_telemetry_mp_start(mp);
      for (std::uint32_t n = 0; n < 50; ++n) {
        std::uint32_t filled = 0, values[3] = {};
        wrong += sdk->vuna_telemetry_mp_get_counters(mp, 1, &filled, values) || filled != 3 ||
                 values[2] != n;
      }
      wrong += sdk->vuna_telemetry_mp_stop(mp) || sdk->vuna_telemetry_mp_destroy(mp) ||
               sdk->vuna_dev_close(own);
      sdk->vuna_dev_close(own);
    }
  });
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(sdk->reported("opens"), 200U);
  EXPECT_EQ(sdk->reported("closes"), 200U);
  EXPECT_EQ(sdk->reported("misuses"), 200U);
}

TEST_F(Lifecycle, StatusNames) {
  load("{'devices':[],'status_names':{'18':'GAP','77':'SEVENTY_SEVEN %s'}}");
  EXPECT_STREQ(sdk->vuna_error_get_name(18), "GAP");
  EXPECT_STREQ(sdk->vuna_error_get_name(77), "SEVENTY_SEVEN %s");
  EXPECT_STREQ(sdk->vuna_error_get_name(21), "VUNA_SLOT_INVALID");
  EXPECT_STREQ(sdk->vuna_error_get_name(UINT32_MAX), "VUNA_STATUS_WITHOUT_NAME");
}

}  // namespace
}  // namespace simulator_test
