// A host loads the built library, samples the simulator, and unloads the library: with the first
// two calls of every function failing, and many times without a failure. Each time everything is
// released, including libraries and descriptors.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <thread>

#include "sdk/vuna_abi.h"
#include "tests/support/plugin.h"

namespace tev::test {
namespace {

constexpr char kDevices[] = R"({"clock": "samples", "devices": [
  {"ibdev_name": "rdma0", "slots": [{"status": 18}, {"enable_status": 21}, {"counters": [
    {"text": "rx, received"}, {"text": "tx, sent", "planes": 2}]}]},
  {"ibdev_name": "rdma1", "slots": [{"counters": [{"text": "rx, received"}]}]},
  {"ibdev_name": "rdma2", "slots": [{"counters": [
    {"text": "rx, received"}, {"text": "err, errors"}]}]}], "faults": [)";

// How a call goes wrong.
constexpr const char* kWays[] = {R"("status": 42)", R"("deliver": "nothing")",
                                 R"("status": 42, "deliver": "result")"};

// These functions have no output. The SDK must not report success without doing the work.
const std::set<std::string> kActions = {"vuna_telemetry_mp_start", "vuna_telemetry_mp_stop",
                                        "vuna_telemetry_mp_destroy", "vuna_dev_close",
                                        "vuna_devinfo_destroy_list"};

constexpr const char* kFunctions[] = {
#define TEV_NAME(name, result, parameters) #name,
    VUNA_FUNCTIONS(TEV_NAME)
#undef TEV_NAME
};

std::ptrdiff_t openDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

long linesOf(const char* path) {
  long lines = 0;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) ++lines;
  return lines;
}

long residentKib() {
  long all_pages = 0;
  long resident_pages = 0;
  std::ifstream("/proc/self/statm") >> all_pages >> resident_pages;
  return resident_pages * (sysconf(_SC_PAGESIZE) / 1024);
}

// One life of plug-in and provider. Returns the number of events.
std::size_t live(const char* threads) {
  const CapturedLog log(TEV_LEVEL_DEBUG);
  const Plugin plugin;
  plugin.shareLogger();
  HostedProvider provider(plugin, options({{"multipath-vuna-lib-path", SIMULATOR},
                                           {"multipath-sampling-threads", threads},
                                           {"multipath-sample-interval-usec", "100"},
                                           {"update", "100"}})
                                      .get());
  if (!provider || !provider.initialize()) return 0;
  std::size_t events = 0;
  for (int call = 0; call < 50; ++call) {
    events += provider.drain().size();
    std::this_thread::sleep_for(std::chrono::microseconds(20));
  }
  provider->stop(provider.get());
  return events + provider.drain().size();
}

TEST(PluginMatrix, EveryCallThatGoesWrongLeavesNothingBehind) {
  TempTree tree;
  Environment environment;
  environment.set("VUNA_SIMULATOR_TRACE", tree.path("trace"));
  unsigned met = 0;
  std::size_t events = 0;
  for (const std::string function : kFunctions)
    for (const char* const call : {"1", "2"})
      for (const char* const way : kWays) {
        if (way == kWays[1] && kActions.contains(function)) continue;
        const auto fault = R"({"function": ")" + function + R"(", "call": )" + call + ", " + way;
        SCOPED_TRACE(fault);
        environment.set("VUNA_SIMULATOR_SCENARIO",
                        tree.write("scenario.json", kDevices + fault + "}]}"));
        tree.write("trace", "");
        const auto descriptors = openDescriptors();
        for (const char* const threads : {"1", "3"}) events += live(threads);
        EXPECT_EQ(openDescriptors(), descriptors);
        for (const char* const library : {PLUGIN, SIMULATOR})
          EXPECT_EQ(dlopen(library, RTLD_NOW | RTLD_NOLOAD), nullptr);
        const std::string trace = readAll(tree.path("trace"));
        EXPECT_EQ(trace.find("MISUSE"), std::string::npos) << trace;
        EXPECT_TRUE(trace.ends_with("UNLOAD - - 0\n"));
        met += trace.find(" fault\n") != std::string::npos;
      }
  EXPECT_GT(met, 120u);
  EXPECT_GT(events, 0u);
  std::printf("calls of the simulator failed: %u\nevents delivered meanwhile: %zu\n", met, events);
}

// `scripts/robustness` sets the number of loads.
TEST(Unload, LeavesTheProcessAsItWas) {
  Environment environment;
  environment.set("VUNA_SIMULATOR_SCENARIO", "default");
  const char* const wanted = std::getenv("ROBUSTNESS_LOADS");
  const long loads = wanted ? std::strtol(wanted, nullptr, 10) : 50;
  long mappings = 0;
  long resident = 0;
  std::size_t events = 0;
  for (long n = -20; n < loads; ++n) {
    if (n == 0) {  // what is kept once is there
      mappings = linesOf("/proc/self/maps");
      resident = residentKib();
    }
    events += live("1");
  }
  EXPECT_GT(events, 0u);
  // The sanitizers keep what is freed.
  if (!SANITIZED) {
    EXPECT_LE(linesOf("/proc/self/maps"), mappings + 2);
    EXPECT_LE(residentKib(), resident + 2048);
  }
  std::printf("loads and unloads: %ld\nresident memory around them: %ld KiB, then %ld KiB\n", loads,
              resident, residentKib());
}

}  // namespace
}  // namespace tev::test
