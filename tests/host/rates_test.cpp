#include "host/rates.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/short_number.h"
#include "tev/schema.h"

namespace tev::host {
namespace {

constexpr std::int64_t kRange = std::int64_t{1} << 32;
constexpr std::int64_t kQuarter = kRange / 4;

TEST(Step, TellsAWrapFromADecrease) {
  struct Row {
    const char* name;
    std::uint64_t before, now;
    std::int64_t step_before, step;
  };
  const std::vector<Row> rows = {
      {"forward", 5, 9, 0, 4},
      {"forward by nearly the whole range", 0, 4294967295, 0, kRange - 1},
      {"still", 7, 7, 0, 0},
      {"wrap", 4294967295, 0, 0, 1},
      {"a gauge sinks", 80, 12, 0, -68},
      {"falls by a quarter of the range", kQuarter, 0, 0, -kQuarter},
      {"falls by more than that", kQuarter + 1, 0, 0, kRange - kQuarter - 1},
      {"falls a little after steps of most of the range", 3000000000, 2500000000, 3700000000,
       kRange - 500000000},
      {"falls a little after small steps", 3000000000, 2500000000, 1000, -500000000},
  };
  for (const Row& row : rows)
    EXPECT_EQ(stepBetween(row.before, row.now, 32, row.step_before), row.step) << row.name;
  EXPECT_EQ(stepBetween(UINT64_MAX, 1, 64, 0), 2);
  EXPECT_EQ(stepBetween(10, 3, 64, 0), -7);
}

TEST(CounterTrack, AddsUpEverySampleAcrossWraps) {
  // From slow to nearly one round per sample; the true count is known in 64 bits.
  for (const std::uint64_t per_sample : {1u, 40000000u, 1500000000u, 3000000000u, 4200000000u}) {
    Trend track_trend;
    CounterTrack track(32, TEV_VALUE_ABSOLUTE, track_trend);
    for (std::uint64_t s = 0; s <= 100; ++s)
      track.sample(static_cast<std::uint32_t>(s * per_sample), s * 1000000);
    EXPECT_EQ(track.total(), static_cast<std::int64_t>(100 * per_sample)) << per_sample;
    EXPECT_FALSE(track.isGauge()) << per_sample;
    EXPECT_DOUBLE_EQ(track.perSecondOfAll().value_or(0), static_cast<double>(per_sample));
  }
}

TEST(CounterTrack, KnowsAGaugeByItsFalls) {
  Trend rtt_trend;
  CounterTrack rtt(32, TEV_VALUE_ABSOLUTE, rtt_trend);
  for (std::uint64_t s = 0; s < 100; ++s) rtt.sample(50 + (s * 7) % 13, s);
  EXPECT_TRUE(rtt.isGauge());

  Trend reset_once_trend;
  CounterTrack reset_once(32, TEV_VALUE_ABSOLUTE, reset_once_trend);
  for (std::uint64_t s = 0; s < 100; ++s) reset_once.sample(s < 50 ? s : s - 50, s);
  EXPECT_FALSE(reset_once.isGauge());

  // Standing still says nothing, and what one series shows holds for the field's others.
  Trend load;
  CounterTrack slow(32, TEV_VALUE_ABSOLUTE, load);
  CounterTrack rising(32, TEV_VALUE_ABSOLUTE, load);
  for (const std::uint64_t value : {9u, 9u, 8u}) slow.sample(value, 0);
  for (std::uint64_t s = 0; s < 10; ++s) rising.sample(s, s);
  EXPECT_TRUE(rising.isGauge());
}

TEST(CounterTrack, FollowsTheCountingMode) {
  Trend sum_trend;
  CounterTrack sum(32, TEV_VALUE_RUNNING_SUM, sum_trend);
  sum.sample(10, 0);
  sum.sample(9, 1);  // cannot have decreased
  EXPECT_EQ(sum.total(), kRange - 1);

  Trend delta_trend;
  CounterTrack delta(32, TEV_VALUE_DELTA, delta_trend);
  for (const std::uint64_t value : {900u, 5u, 7u}) delta.sample(value, value);
  EXPECT_EQ(delta.total(), 12);
}

TEST(CounterTrack, RatesAreThoseOfTheLastWindow) {
  Trend track_trend;
  CounterTrack track(32, TEV_VALUE_ABSOLUTE, track_trend);
  track.endWindow();
  EXPECT_FALSE(track.perSecond());
  track.sample(100, 5'000'000);
  track.endWindow();
  EXPECT_FALSE(track.perSecond()) << "one sample is no rate";
  track.sample(200, 5'500'000);
  track.sample(500, 6'000'000);
  track.endWindow();
  EXPECT_DOUBLE_EQ(track.perSecond().value_or(0), 400);
  track.endWindow();
  EXPECT_DOUBLE_EQ(track.perSecond().value_or(0), 400) << "without news, the rate stands";
  track.sample(510, 8'000'000);
  track.endWindow();
  EXPECT_DOUBLE_EQ(track.perSecond().value_or(0), 5);
}

TEST(ShortNumber, FitsFiveCharacters) {
  const std::vector<std::pair<double, std::string>> rows = {{0, "0"},
                                                            {7, "7"},
                                                            {99999, "99999"},
                                                            {0.25, "0.25"},
                                                            {0.996, "1.0"},
                                                            {9.96, "10.0"},
                                                            {99.96, "100"},
                                                            {1234.5, "1234"},
                                                            {99999.4, "99999"},
                                                            {99999.5, "100k"},
                                                            {100000, "100k"},
                                                            {999499, "999k"},
                                                            {999500, "1.00M"},
                                                            {12345678, "12.3M"},
                                                            {4294967295, "4.29G"},
                                                            {1.8e19, "18.0E"},
                                                            {-2500000, "-2.50M"}};
  for (const auto& [number, text] : rows) EXPECT_EQ(shortNumber(number), text);
}

}  // namespace
}  // namespace tev::host
