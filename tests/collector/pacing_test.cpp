#include "collector/pacing.h"

#include <gtest/gtest.h>

#include <limits>

namespace tev::events::multipath {
namespace {

Clock::TimePoint at(std::int64_t usec) {
  return Clock::TimePoint(std::chrono::microseconds(usec));
}

TEST(Pacing, ReturnsToTheCommonGridWithinHalfAnInterval) {
  // The grid begins at 5000, the first pass at 5400. Its interval is 1000.
  const struct {
    std::int64_t began, ended, next_due;
    std::uint64_t missed, missed_by_overrun;
  } passes[] = {
      {5'400, 5'500, 6'000, 0, 0},      // the first point that is half an interval away
      {6'000, 6'100, 7'000, 0, 0},      //
      {7'501, 7'600, 9'000, 1, 0},      // woken late: 8000 is too near
      {9'000, 10'200, 10'200, 1, 0},    // an overrun: the next pass follows immediately
      {10'200, 10'300, 11'000, 1, 0},   // and the grid after it
      {11'000, 13'600, 13'600, 1, 1},   // 12000 is missed; 13000 comes as 13600
      {13'600, 13'700, 15'000, 1, 2},   // 14000 is too near
      {25'000, 25'100, 26'000, 11, 2},  // a long sleep
  };
  PassLedger ledger;
  Pacing pacing(at(5'400), 1'000, ledger, at(5'000));
  for (const auto& pass : passes) {
    SCOPED_TRACE(pass.began);
    EXPECT_EQ(pacing.next(at(pass.began), at(pass.ended)), at(pass.next_due));
    EXPECT_EQ(ledger.missed_by_late_wakeup.get(), pass.missed);
    EXPECT_EQ(ledger.missed_by_overrun.get(), pass.missed_by_overrun);
  }

  Pacing endless(at(5'400), std::numeric_limits<std::uint64_t>::max(), ledger, at(5'000));
  EXPECT_EQ(endless.next(at(5'400), at(5'500)), Clock::kNever);
  EXPECT_EQ(after(at(5'000'000), 9'223'372'036'854'775), Clock::kNever);
}

}  // namespace
}  // namespace tev::events::multipath
