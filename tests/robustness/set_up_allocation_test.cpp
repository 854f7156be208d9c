// Each allocation of a provider's set-up fails once. The set-up must then be undone without a leak.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>

#include "tests/robustness/failing_allocator.h"
#include "tests/robustness/rig.h"
#include "tests/support/captured_log.h"

namespace tev::test {
namespace {

// Formats without allocating.
std::atomic<unsigned> errors_logged{0};
void countErrors(std::uint32_t level, const char* format, ...) TEV_PRINTF_FORMAT(2, 3);
void countErrors(std::uint32_t level, const char* format, ...) {
  char text[512];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
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

TEST(AllocationFailures, OfTheSetUpUndoItWithoutALeak) {
  const CapturedLog restored_at_the_end;
  tev_set_log_func(countErrors, TEV_LEVEL_DEBUG);

  constexpr long kMany = 5'000;
  long failed = -2;  // two lives first, for what is allocated once for the process
  long refused = 0;
  for (bool has_failed = true; has_failed; ++failed) {
    ASSERT_LT(failed, kMany) << "never succeeds";
    SCOPED_TRACE("allocation " + std::to_string(failed));
    const long before = blocksInUse();
    {
      Rig rig;
      rig.before_set_up = [&] { failAllocation(failed); };
      rig.after_set_up = [&] { has_failed = endFailing() || failed < 0; };
      const unsigned errors_before = errors_logged;
      spareTheSdk(rig.sdk.functions);
      const Life life = rig.live();

      EXPECT_TRUE(rig.sdk.balanced());
      if (life.initialized) {
        EXPECT_EQ(life.delivered, 2 * Rig::kPasses);
      } else {
        ++refused;
        EXPECT_TRUE(has_failed);
        EXPECT_TRUE(!life.constructed || errors_logged > errors_before);
      }
    }
    ASSERT_TRUE(failed < 0 || blocksInUse() == before) << blocksInUse() - before;
  }
  EXPECT_GT(failed, 100);
  EXPECT_GT(refused, failed / 2);
  std::printf("allocations failed: %ld\nof these refused by the set-up: %ld\n", failed - 1,
              refused);
}

}  // namespace
}  // namespace tev::test
