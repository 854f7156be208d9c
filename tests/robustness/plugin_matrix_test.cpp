// The built library with the simulator: every call that it makes fails once, and each time
// everything is released, including libraries and descriptors.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <thread>

#include "tests/support/captured_log.h"
#include "tests/support/environment.h"
#include "tests/support/options.h"
#include "tests/support/plugin.h"
#include "tests/support/temp_tree.h"

namespace tev::test {
namespace {

constexpr char kDevices[] = R"({"clock": "samples", "devices": [
  {"ibdev_name": "rdma0", "slots": [{"status": 18}, {"enable_status": 21}, {"counters": [
    {"text": "rx, received"}, {"text": "tx, sent", "planes": 2}]}]},
  {"ibdev_name": "rdma1", "slots": [{"counters": [
    {"text": "rx, received"}, {"text": "err, errors"}]}]}], "faults": [)";

// How a call goes wrong.
constexpr const char* kWays[] = {R"("status": 42)", R"("deliver": "nothing")",
                                 R"("status": 42, "deliver": "result")"};

// These functions have no output. The SDK must not report success without doing the work.
const std::set<std::string> kActions = {"vuna_telemetry_mp_start", "vuna_telemetry_mp_stop",
                                        "vuna_telemetry_mp_destroy", "vuna_dev_close",
                                        "vuna_devinfo_destroy_list"};

std::ptrdiff_t openDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

class PluginMatrix : public testing::Test {
 protected:
  // One life of plug-in and provider. The calls of the SDK, as the simulator traced them.
  std::map<std::string, unsigned> live(const std::string& faults) {
    environment_.set("VUNA_SIMULATOR_SCENARIO",
                     tree_.write("scenario.json", kDevices + faults + "]}"));
    environment_.set("VUNA_SIMULATOR_TRACE", tree_.write("trace", ""));
    const auto descriptors = openDescriptors();
    {
      const CapturedLog log(TEV_LEVEL_DEBUG);
      const Plugin plugin;
      plugin.shareLogger();
      HostedProvider provider(plugin, options({{"multipath-vuna-lib-path", SIMULATOR},
                                               {"multipath-sample-interval-usec", "100"},
                                               {"update", "100"}})
                                          .get());
      EXPECT_TRUE(provider);
      if (provider && provider.initialize()) {
        for (int call = 0; call < 50; ++call) {
          events_ += provider.drain().size();
          std::this_thread::sleep_for(std::chrono::microseconds(20));
        }
        provider->stop(provider.get());
        events_ += provider.drain().size();
      }
    }
    EXPECT_EQ(openDescriptors(), descriptors);
    const std::string maps = readAll("/proc/self/maps");
    EXPECT_EQ(maps.find("libvuna_"), maps.npos);
    EXPECT_EQ(maps.find("libevents_multipath"), maps.npos);
    std::map<std::string, unsigned> calls;
    std::istringstream trace(readAll(tree_.path("trace")));
    for (std::string line; std::getline(trace, line);) {
      ++calls[line.substr(0, line.find(' '))];
      if (line.ends_with(" fault")) ++calls["FAULT"];
    }
    EXPECT_EQ(calls["MISUSE"], 0u) << trace.str();
    EXPECT_TRUE(trace.str().ends_with("UNLOAD - - 0\n"));
    return calls;
  }

  TempTree tree_;
  Environment environment_;
  std::size_t events_ = 0;
};

TEST_F(PluginMatrix, EveryCallThatGoesWrongLeavesNothingBehind) {
  const auto calls = live("");
  ASSERT_GT(events_, 0u);
  // All functions but the text of a status and the read that clears.
  ASSERT_EQ(std::count_if(calls.begin(), calls.end(),
                          [](const auto& call) { return call.first.starts_with("vuna_"); }),
            25);

  unsigned lives = 0;
  constexpr unsigned kReads = 3;  // how many there are is a matter of time
  for (const auto& [function, made] : calls) {
    if (!function.starts_with("vuna_")) continue;
    const unsigned count = function == "vuna_telemetry_mp_get_counters" ? kReads : made;
    for (unsigned call = 1; call <= count; ++call)
      for (const std::string way : kWays) {
        if (way == kWays[1] && kActions.contains(function)) continue;
        const auto fault = R"({"function": ")" + function + R"(", "call": )" +
                           std::to_string(call) + ", " + way + "}";
        SCOPED_TRACE(fault);
        const bool met = live(fault)["FAULT"] == 1;
        EXPECT_TRUE(met || function == "vuna_telemetry_mp_get_counters");
        ++lives;
      }
  }
  EXPECT_GT(lives, 60u);
  std::printf("calls of the simulator failed: %u\nevents delivered meanwhile: %zu\n", lives,
              events_);
}

}  // namespace
}  // namespace tev::test
