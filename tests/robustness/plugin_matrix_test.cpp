// The built library against the simulator: every call that it makes goes wrong once, and each time
// everything is given back, down to the libraries and descriptors.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/captured_log.h"
#include "tests/support/environment.h"
#include "tests/support/options.h"
#include "tests/support/plugin.h"
#include "tests/support/temp_tree.h"

namespace tev::test {
namespace {

constexpr char kDevices[] = R"("clock": "samples", "devices": [
  {"ibdev_name": "rdma0", "slots": [{"status": 18}, {"enable_status": 21}, {"counters": [
    {"text": "rx, received"}, {"text": "tx, sent", "planes": 2}]}]},
  {"ibdev_name": "rdma1", "slots": [{"counters": [{"text": "rx, received"}, {"text": "err, errors"}]}]}])";

// How a call goes wrong.
constexpr const char* kWays[] = {R"("status": 42)", R"("deliver": "nothing")",
                                 R"("status": 42, "deliver": "result")"};

// What they are to do has no output: an SDK that says it is done, and has not done it, is lying.
const std::set<std::string> kActions = {"vuna_telemetry_mp_start", "vuna_telemetry_mp_stop",
                                        "vuna_telemetry_mp_destroy", "vuna_dev_close",
                                        "vuna_devinfo_destroy_list"};

std::size_t openDescriptors() {
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
    ++count;
  return count;
}

bool isMapped(const std::string& library) {
  std::stringstream maps;
  maps << std::ifstream("/proc/self/maps").rdbuf();
  return maps.str().find(library) != std::string::npos;
}

class PluginMatrix : public testing::Test {
 protected:
  PluginMatrix() {
    environment_.set("VUNA_SIMULATOR_SCENARIO", tree_.path("scenario.json"));
    environment_.set("VUNA_SIMULATOR_TRACE", trace_);
  }

  // One life of plug-in and provider; the calls of the SDK in their order, as the simulator traced
  // them.
  std::vector<std::string> live(const std::string& faults) {
    tree_.write("scenario.json", "{" + std::string(kDevices) + ", \"faults\": [" + faults + "]}");
    tree_.write("trace", "");
    const std::size_t descriptors = openDescriptors();
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
        provider->start(provider.get());
        for (int call = 0; call < 50; ++call) {
          events_ += provider.drain().size();
          std::this_thread::sleep_for(std::chrono::microseconds(20));
        }
        provider->stop(provider.get());
        events_ += provider.drain().size();
      }
    }
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_FALSE(isMapped("libvuna_"));
    EXPECT_FALSE(isMapped("libevents_multipath"));
    std::vector<std::string> calls;
    std::ifstream trace(trace_);
    for (std::string line; std::getline(trace, line);) {
      EXPECT_FALSE(line.starts_with("MISUSE")) << line;
      calls.push_back(line);
    }
    EXPECT_EQ(calls.empty() ? "" : calls.back(), "UNLOAD - - 0");
    return calls;
  }

  TempTree tree_;
  const std::string trace_ = tree_.path("trace");
  Environment environment_;
  std::size_t events_ = 0;
};

TEST_F(PluginMatrix, EveryCallThatGoesWrongLeavesNothingBehind) {
  std::map<std::string, unsigned> calls;
  for (const std::string& line : live("")) ++calls[line.substr(0, line.find(' '))];
  calls.erase("UNLOAD");
  ASSERT_GT(events_, 0u);
  ASSERT_GE(calls.size(), 22u);

  unsigned lives = 0;
  constexpr unsigned kReads = 3;  // how many there are is a matter of time
  for (const auto& [function, count] : calls)
    for (unsigned call = 1; call <= (function == "vuna_telemetry_mp_get_counters" ? kReads : count);
         ++call)
      for (const char* const way : kWays) {
        if (way == kWays[1] && kActions.contains(function)) continue;
        const std::string fault = R"({"function": ")" + function + R"(", "call": )" +
                                  std::to_string(call) + ", " + way + "}";
        SCOPED_TRACE(fault);
        live(fault);
        ++lives;
      }
  std::printf("calls of the simulator failed: %u\nevents delivered meanwhile: %zu\n", lives,
              events_);
}

}  // namespace
}  // namespace tev::test
