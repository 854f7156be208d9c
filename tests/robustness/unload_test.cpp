// A host loads and unloads the plug-in repeatedly. Each time the plug-in has its own logger, and
// sometimes a provider that samples.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "tests/support/environment.h"
#include "tests/support/options.h"
#include "tests/support/plugin.h"

namespace tev::test {
namespace {

// What the process holds.
struct Holdings {
  long descriptors = 0;
  long mappings = 0;
  long resident_kib = 0;
};

Holdings holdings() {
  Holdings now;
  now.descriptors = std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) ++now.mappings;
  long all_pages = 0;
  long resident_pages = 0;
  std::ifstream("/proc/self/statm") >> all_pages >> resident_pages;
  now.resident_kib = resident_pages * (sysconf(_SC_PAGESIZE) / 1024);
  return now;
}

void load() {
  const Plugin plugin;
  // With a mutex, which is released when the process ends or the library is unloaded.
  ASSERT_EQ(plugin.symbol<decltype(tev_init_stderr_logger)>("tev_init_stderr_logger")(0), 1);
}

void loadAndSample() {
  const Plugin plugin;
  HostedProvider provider(plugin, options({{"multipath-vuna-lib-path", SIMULATOR},
                                           {"multipath-sample-interval-usec", "100"},
                                           {"update", "100"}})
                                      .get());
  ASSERT_TRUE(provider && provider.initialize());
  EXPECT_FALSE(provider.await(1).empty());
}

void loadSo(long often) {
  for (long n = 0; n < often && !testing::Test::HasFatalFailure(); ++n) {
    if (n % 50 == 0)
      loadAndSample();
    else
      load();
  }
}

TEST(Unload, LeavesTheProcessAsItWas) {
  Environment environment;
  environment.set("VUNA_SIMULATOR_SCENARIO", "default");
  const char* const wanted = std::getenv("ROBUSTNESS_LOADS");
  const long loads = wanted ? std::strtol(wanted, nullptr, 10) : 300;
  loadSo(200);  // until what is kept once is there
  const Holdings before = holdings();
  loadSo(loads);
  const Holdings after = holdings();
  EXPECT_EQ(after.descriptors, before.descriptors);
  // The sanitizers keep what is freed.
  if (!SANITIZED) {
    EXPECT_LE(after.mappings, before.mappings + 2);
    EXPECT_LE(after.resident_kib, before.resident_kib + 2048);
  }
  EXPECT_EQ(dlopen(PLUGIN, RTLD_NOW | RTLD_NOLOAD), nullptr);
  std::printf(
      "loads and unloads: %ld\nresident memory around them: %ld KiB, then %ld KiB\n"
      "mappings: %ld, then %ld\ndescriptors: %ld, then %ld\n",
      loads, before.resident_kib, after.resident_kib, before.mappings, after.mappings,
      before.descriptors, after.descriptors);
}

}  // namespace
}  // namespace tev::test
