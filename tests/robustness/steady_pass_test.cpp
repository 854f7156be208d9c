// What the sampling thread does once it has begun.

#include <gtest/gtest.h>

#include "tests/robustness/failing_allocator.h"
#include "tests/support/captured_log.h"
#include "tests/support/fake_machine.h"
#include "tests/support/local_provider.h"
#include "tests/support/options.h"

namespace tev::test {
namespace {

TEST(SteadyPass, AllocatesNothing) {
  const CapturedLog log(TEV_LEVEL_WARNING);
  FakeMachine machine;
  machine.sdk.add("a", {"x, r", "y, r, plane 0", "y, r, plane 1"}, {1, 2, 3});
  machine.sdk.add("b", {"x, r"}, {1});
  constexpr int kPasses = 2'000;
  int passes = 0;
  long at_first = 0;
  std::atomic<long> since{-1};  // allocations of the sampling thread, first read to last
  machine.sdk.on_read = [&](const std::string& device, auto&) {
    if (device != "a") return;
    if (passes == 0) at_first = allocations();
    if (++passes == kPasses) since = allocations() - at_first;
  };
  LocalProvider provider(machine.liveSurroundings());
  provider.construct(
      options({{"multipath-sample-interval-usec", "1"}, {"multipath-max-buffer-size", "4096"}})
          .get());
  ASSERT_TRUE(provider.initialize());
  while (since < 0) {  // full buffers, swaps and empty ones alike
    provider.drain();
    std::this_thread::sleep_for(std::chrono::microseconds(300));
  }
  provider.stop();
  EXPECT_EQ(since, 0);
}

}  // namespace
}  // namespace tev::test
