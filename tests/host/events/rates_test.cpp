#include "host/events/rates.h"

#include <gtest/gtest.h>

#include "tev/schema.h"

namespace tev::host {
namespace {

constexpr std::int64_t kRange = std::int64_t{1} << 32;
constexpr std::int64_t kQuarter = kRange / 4;

TEST(Step, TellsAWrapFromADecrease) {
  const struct {
    const char* name;
    std::uint64_t before, now;
    std::int64_t step_before, step;
    unsigned bits = 32;
  } rows[] = {
      {"forward by nearly the whole range", 0, 4294967295, 0, kRange - 1},
      {"wrap", 4294967295, 0, 0, 1},
      {"falls by a quarter of the range", kQuarter, 0, 0, -kQuarter},
      {"falls by more than that", kQuarter + 1, 0, 0, kRange - kQuarter - 1},
      {"falls a little after steps of most of the range", 3000000000, 2500000000, 3700000000,
       kRange - 500000000},
      {"falls a little after small steps", 3000000000, 2500000000, 1000, -500000000},
      {"wrap of 64 bits", UINT64_MAX, 1, 0, 2, 64},
  };
  for (const auto& row : rows)
    EXPECT_EQ(stepBetween(row.before, row.now, row.bits, row.step_before), row.step) << row.name;
}

struct Tracked {
  explicit Tracked(std::uint32_t mode = TEV_VALUE_ABSOLUTE) : track(32, mode, trend) {}
  Trend trend;
  CounterTrack track;
};

TEST(CounterTrack, AddsUpEverySampleAcrossWraps) {
  // From slow to nearly one round per sample; the true count is known in 64 bits.
  for (const std::uint64_t per_sample : {1u, 40000000u, 1500000000u, 3000000000u, 4200000000u}) {
    Tracked counter;
    for (std::uint64_t s = 0; s <= 100; ++s)
      counter.track.sample(static_cast<std::uint32_t>(s * per_sample), s * 1000000);
    EXPECT_EQ(counter.track.total(), static_cast<std::int64_t>(100 * per_sample)) << per_sample;
    EXPECT_FALSE(counter.track.isGauge()) << per_sample;
    EXPECT_DOUBLE_EQ(counter.track.perSecondOfAll().value_or(0), static_cast<double>(per_sample));
  }
}

// More than one change in sixteen is a decrease. Samples without a change do not count. The result
// of one series applies to the field in all series.
TEST(CounterTrack, KnowsAGaugeByItsFalls) {
  for (const std::uint64_t rises : {14u, 15u}) {
    Tracked rising;
    CounterTrack falling(32, TEV_VALUE_ABSOLUTE, rising.trend);
    for (std::uint64_t s = 0; s <= rises; ++s) rising.track.sample(s, s);
    for (const std::uint64_t value : {9u, 9u, 8u}) falling.sample(value, 0);
    EXPECT_EQ(rising.track.isGauge(), rises == 14);
  }
}

TEST(CounterTrack, FollowsTheCountingMode) {
  Tracked sum(TEV_VALUE_RUNNING_SUM);
  for (const std::uint64_t value : {10u, 9u}) sum.track.sample(value, value);
  EXPECT_EQ(sum.track.total(), kRange - 1) << "cannot have decreased";

  Tracked delta(TEV_VALUE_DELTA);
  for (const std::uint64_t value : {900u, 5u, 7u}) delta.track.sample(value, value);
  EXPECT_EQ(delta.track.total(), 12);
}

TEST(CounterTrack, RatesAreThoseOfTheLastWindow) {
  Tracked counter;
  CounterTrack& track = counter.track;
  track.sample(100, 5'000'000);
  track.endWindow();
  EXPECT_FALSE(track.perSecond()) << "one sample does not give a rate";
  track.sample(200, 5'500'000);
  track.sample(500, 6'000'000);
  for (const char* const when : {"at once", "without news"}) {
    track.endWindow();
    EXPECT_DOUBLE_EQ(track.perSecond().value_or(0), 400) << when;
  }
  track.sample(510, 8'000'000);
  track.endWindow();
  EXPECT_DOUBLE_EQ(track.perSecond().value_or(0), 5);
}

}  // namespace
}  // namespace tev::host
