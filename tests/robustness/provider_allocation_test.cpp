// What a provider allocates. Each allocation of its set-up fails once; the set-up must then be
// undone without a leak. The sampling thread allocates nothing once it has begun.
#include <gtest/gtest.h>

#include <cstdio>

#include "tests/robustness/failing_allocator.h"
#include "tests/support/local_provider.h"

namespace tev::test {
namespace {

std::atomic<unsigned> errors_logged{0};

void countErrors(std::uint32_t level, const char*, ...) {
  if (level <= TEV_LEVEL_ERROR) ++errors_logged;
}

// The SDK's own allocations do not fail and are not counted.
void spareTheSdk(events::multipath::SdkFunctions& functions) {
  static events::multipath::SdkFunctions plain;
  plain = functions;
#define TEV_SPARE(name, result, parameters)          \
  functions.name = [](auto... arguments) -> result { \
    const AllocationsSucceed spared;                 \
    return plain.name(arguments...);                 \
  };
  VUNA_FUNCTIONS(TEV_SPARE)
#undef TEV_SPARE
}

struct Outcome {
  bool initialized = false;
  bool has_failed = false;  // an allocation
};

// A provider from its construction to its end, with allocation number `n` of the set-up failing.
Outcome liveWithout(long n) {
  FakeMachine machine;
  for (const char* name : {"rdma0", "rdma1"}) {
    machine.adapter(name, "0000:01:00.0", {"an-interface-with-a-long-name"});
    machine.sdk.add(name, {"rx, received", "tx, sent, plane 0", "tx, sent, plane 1"}, {1, 2, 3});
  }
  machine.clock.passes = 4;
  machine.clock.waits.reserve(16);
  spareTheSdk(machine.sdk.functions);
  const unsigned errors_before = errors_logged;
  bool constructed = false;
  Outcome outcome;
  {
    const Options settings = options({{"update", "60000"}});
    LocalProvider provider(machine.surroundings());
    failAllocation(n);
    try {
      provider.construct(settings.get());
      constructed = true;
      outcome.initialized = provider.initialize();
    } catch (const std::exception&) {
      // construct_event_provider() returns null
    }
    outcome.has_failed = endFailing();
    if (outcome.initialized) {
      machine.awaitPasses();
      EXPECT_EQ(provider.drain().size(), 4u * 2 * 3);
    }
  }
  EXPECT_TRUE(machine.sdk.balanced());
  EXPECT_TRUE(outcome.initialized || !constructed || errors_logged > errors_before);
  return outcome;
}

TEST(AllocationFailures, OfTheSetUpUndoItWithoutALeak) {
  const CapturedLog restored_at_the_end;
  tev_set_log_func(countErrors, TEV_LEVEL_DEBUG);
  for (int life = 0; life < 2; ++life) liveWithout(-1);  // for what is allocated once
  long failed = 0;
  long refused = 0;
  for (bool has_failed = true; has_failed; ++failed) {
    ASSERT_LT(failed, 5'000) << "never succeeds";
    SCOPED_TRACE("allocation " + std::to_string(failed));
    const long before = blocksInUse();
    const Outcome outcome = liveWithout(failed);
    has_failed = outcome.has_failed;
    EXPECT_TRUE(has_failed || outcome.initialized);
    refused += !outcome.initialized;
    ASSERT_EQ(blocksInUse(), before);
  }
  EXPECT_GT(failed, 100);
  EXPECT_GT(refused, failed / 2);
  std::printf("allocations failed: %ld\nof these refused by the set-up: %ld\n", failed - 1,
              refused);
}

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
