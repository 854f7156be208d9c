// What the sampling thread does once it has begun.

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "provider/provider.h"
#include "tests/robustness/sparing_sdk.h"
#include "tests/support/captured_log.h"
#include "tests/support/options.h"
#include "tests/support/temp_tree.h"

namespace tev::test {
namespace {

TEST(SteadyPass, AllocatesNothing) {
  const CapturedLog log(TEV_LEVEL_WARNING);
  const TempTree tree;
  FakeSdk sdk;
  sdk.add("a", {"x, r", "y, r, plane 0", "y, r, plane 1"}, {1, 2, 3});
  sdk.add("b", {"x, r"}, {1});
  constexpr int kPasses = 2'000;
  int passes = 0;
  long at_first = 0;
  std::atomic<long> since{
      -1};  // allocations of the sampling thread from its first read to its last
  sdk.on_read = [&](FakeDevice& device) {
    if (device.name != "a") return;
    if (passes == 0) at_first = allocations();
    if (++passes == kPasses) since = allocations() - at_first;
  };
  const SdkFunctions functions = sparingFunctions(sdk.functions());
  events::multipath::Provider provider(
      options({{"multipath-sample-interval-usec", "1"}, {"multipath-max-buffer-size", "4096"}})
          .get(),
      {.sdk = &functions, .roots = {tree.path("sys"), tree.path("dev")}});
  tev_event_provider_t record{};
  record.name = "steady";
  tev_type_system_t* const types = tev_create_type_system();
  ASSERT_TRUE(provider.initialize(&record, types));
  std::vector<std::uint8_t> buffer(1 << 16);
  while (since < 0) {  // full buffers, swaps and empty ones alike
    tev_data_serializer_t serializer{types, buffer.data(), buffer.size(), 0};
    ASSERT_EQ(provider.progress(0, &serializer), TEV_PROGRESS_DONE);
    std::this_thread::sleep_for(std::chrono::microseconds(300));
  }
  provider.stop();
  tev_destroy_type_system(types);
  EXPECT_EQ(since, 0);
}

}  // namespace
}  // namespace tev::test
