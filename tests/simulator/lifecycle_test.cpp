#include <gmock/gmock.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <thread>

#include "tests/simulator/sdk.h"

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
  struct Row {
    const char* expected;
    std::function<void(vuna_telemetry_mp*)> act;
  };
  std::uint32_t n = 0;
  const std::vector<Row> rows = {
      {"MISUSE vuna_dev_close - device is not open",
       [&](vuna_telemetry_mp* mp) {
         giveBack(mp);
         EXPECT_NE(sdk->vuna_dev_close(dev), kVunaSuccess);
       }},
      {"MISUSE vuna_dev_as_devinfo - device is not open",
       [&](vuna_telemetry_mp* mp) {
         giveBack(mp);
         EXPECT_EQ(sdk->vuna_dev_as_devinfo(dev), nullptr);
       }},
      {"MISUSE vuna_telemetry_mp_create - device is not open",
       [&](vuna_telemetry_mp*) {
         vuna_telemetry_mp* other = nullptr;
         EXPECT_NE(sdk->vuna_telemetry_mp_create(nullptr, &other), kVunaSuccess);
       }},
      {"MISUSE vuna_telemetry_mp_start a\\x20b context is started",
       [&](vuna_telemetry_mp* mp) { EXPECT_NE(sdk->vuna_telemetry_mp_start(mp), kVunaSuccess); }},
      {"MISUSE vuna_telemetry_mp_stop a\\x20b context is not started",
       [&](vuna_telemetry_mp* mp) {
         sdk->vuna_telemetry_mp_stop(mp);
         EXPECT_NE(sdk->vuna_telemetry_mp_stop(mp), kVunaSuccess);
       }},
      {"MISUSE vuna_telemetry_mp_get_counters a\\x20b context is not started",
       [&](vuna_telemetry_mp* mp) {
         sdk->vuna_telemetry_mp_stop(mp);
         EXPECT_NE(sdk->vuna_telemetry_mp_get_counters(mp, 1, &n, &n), kVunaSuccess);
       }},
      {"MISUSE vuna_telemetry_mp_destroy a\\x20b context is started",
       [&](vuna_telemetry_mp* mp) { sdk->vuna_telemetry_mp_destroy(mp); }},
      {"MISUSE vuna_telemetry_mp_get_algo_id - context is not alive",
       [&](vuna_telemetry_mp* mp) {
         giveBack(mp);
         EXPECT_NE(sdk->vuna_telemetry_mp_get_algo_id(mp, 0, &n), kVunaSuccess);
       }},
      {"MISUSE vuna_dev_close a\\x20b a context of the device is alive",
       [&](vuna_telemetry_mp* mp) {
         sdk->vuna_telemetry_mp_stop(mp);
         sdk->vuna_dev_close(dev);
       }},
      {"MISUSE vuna_telemetry_mp_cap_is_supported - device description is not alive",
       [&](vuna_telemetry_mp*) {
         const vuna_devinfo* const info = list[0];
         sdk->vuna_devinfo_destroy_list(list);
         EXPECT_NE(sdk->vuna_telemetry_mp_cap_is_supported(info), kVunaSuccess);
       }},
      {"MISUSE vuna_devinfo_destroy_list - list is not alive",
       [&](vuna_telemetry_mp*) {
         sdk->vuna_devinfo_destroy_list(list);
         EXPECT_NE(sdk->vuna_devinfo_destroy_list(list), kVunaSuccess);
       }},
      {"MISUSE vuna_telemetry_mp_get_algo_enable_status - an argument is null",
       [&](vuna_telemetry_mp* mp) {
         std::uint8_t flag = 0;
         EXPECT_NE(sdk->vuna_telemetry_mp_get_algo_enable_status(mp, 1, &flag, nullptr),
                   kVunaSuccess);
       }},
  };
  for (const Row& row : rows) {
    load(kOneDevice);
    row.act(start());
    EXPECT_GE(sdk->reported("misuses"), 1U) << row.expected;
    EXPECT_EQ(traced("MISUSE").front(), row.expected);
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
  struct Row {
    std::uint32_t level;
    vuna_status status;
    const char* log;
  };
  for (const auto& [level, status, expected] : {
           Row{10, 0, ""},
           Row{30, 0, "[vuna-sim] [error] vuna_dev_close: device is not open\n"},
           Row{50, 0,
               "[vuna-sim] [info] listed 1 devices\n"
               "[vuna-sim] [error] vuna_dev_close: device is not open\n"},
           Row{71, 2, "[vuna-sim] [error] vuna_dev_close: device is not open\n"},
       }) {
    load(kOneDevice);
    char* text = nullptr;
    std::size_t size = 0;
    std::FILE* const stream = open_memstream(&text, &size);
    vuna_log_backend* backend = nullptr;
    EXPECT_EQ(sdk->vuna_log_backend_create_with_file_sdk(stream, &backend), kVunaSuccess);
    EXPECT_EQ(sdk->vuna_log_backend_set_sdk_level(backend, level), status);
    EXPECT_EQ(createList(), kVunaSuccess);
    sdk->vuna_dev_close(dev);
    unload();
    std::fclose(stream);
    EXPECT_STREQ(text, expected) << level;
    free(text);
  }
}

std::size_t openDescriptors() {
  std::size_t descriptors = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    (void)entry;
    ++descriptors;
  }
  return descriptors;
}

TEST_F(Lifecycle, NothingStaysBehind) {
  const std::size_t before = openDescriptors();
  for (const char* scenario : {"default", "netdev"}) {
    loadNamed(scenario);
    ASSERT_EQ(createList(), kVunaSuccess);
    if (count > 0) start();  // and everything is left as it is
    unload();
    EXPECT_EQ(openDescriptors(), before) << scenario;
  }
}

// Many users at once, each with devices of its own; one of them is wrong now and then.
TEST_F(Lifecycle, CallsMayComeFromManyThreads) {
  loadUntraced(kOneDevice);
  ASSERT_EQ(createList(), kVunaSuccess);
  std::atomic<int> wrong{0};
  const auto user = [&] {
    for (int round = 0; round < 50; ++round) {
      vuna_dev* own = nullptr;
      vuna_telemetry_mp* mp = nullptr;
      wrong += sdk->vuna_dev_open(list[0], &own) != 0;
      wrong += sdk->vuna_telemetry_mp_create(own, &mp) != 0;
      wrong += sdk->vuna_telemetry_mp_start(mp) != 0;
      for (std::uint32_t n = 0; n < 50; ++n) {
        std::uint32_t filled = 0;
        std::uint32_t values[3] = {};
        wrong += sdk->vuna_telemetry_mp_get_counters(mp, 1, &filled, values) != 0;
        wrong += filled != 3 || values[2] != n;
      }
      wrong += sdk->vuna_telemetry_mp_stop(mp) != 0;
      wrong += sdk->vuna_telemetry_mp_destroy(mp) != 0;
      wrong += sdk->vuna_dev_close(own) != 0;
      sdk->vuna_dev_close(own);
    }
  };
  std::vector<std::thread> users;
  users.reserve(4);
  for (int i = 0; i < 4; ++i) users.emplace_back(user);
  for (std::thread& each : users) each.join();
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
