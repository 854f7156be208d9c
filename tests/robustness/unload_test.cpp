// A host loads and unloads the plug-in repeatedly, with a provider that samples.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "tests/support/environment.h"
#include "tests/support/options.h"
#include "tests/support/plugin.h"

namespace tev::test {
namespace {

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

void loadAndSample(long often) {
  for (long n = 0; n < often && !testing::Test::HasFatalFailure(); ++n) {
    const Plugin plugin;
    HostedProvider provider(plugin, options({{"multipath-vuna-lib-path", SIMULATOR},
                                             {"multipath-sample-interval-usec", "100"},
                                             {"update", "100"}})
                                        .get());
    ASSERT_TRUE(provider && provider.initialize());
    EXPECT_FALSE(provider.await(1).empty());
  }
}

TEST(Unload, LeavesTheProcessAsItWas) {
  Environment environment;
  environment.set("VUNA_SIMULATOR_SCENARIO", "default");
  const char* const wanted = std::getenv("ROBUSTNESS_LOADS");
  const long loads = wanted ? std::strtol(wanted, nullptr, 10) : 50;
  loadAndSample(20);  // until what is kept once is there
  const long mappings = linesOf("/proc/self/maps");
  const long resident = residentKib();
  loadAndSample(loads);
  // The sanitizers keep what is freed.
  if (!SANITIZED) {
    EXPECT_LE(linesOf("/proc/self/maps"), mappings + 2);
    EXPECT_LE(residentKib(), resident + 2048);
  }
  EXPECT_EQ(dlopen(PLUGIN, RTLD_NOW | RTLD_NOLOAD), nullptr);
  std::printf("loads and unloads: %ld\nresident memory around them: %ld KiB, then %ld KiB\n", loads,
              resident, residentKib());
}

}  // namespace
}  // namespace tev::test
