#include "host/figures/track.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>

namespace tev::host {
namespace {

// Samples of 32 bits at given times of a field whose value is known at any time.
struct Samples {
  explicit Samples(FieldKind kind = FieldKind::counter) : judge(kind, false), track(32, judge) {}

  void sample(double value, std::uint64_t at_usec) {
    track.sample(static_cast<std::uint32_t>(static_cast<std::uint64_t>(value)),
                 SampleTime::after(before_usec, at_usec));
    before_usec = at_usec;
  }

  KindJudge judge;
  Track track;
  std::uint64_t before_usec = 0;
};

// The true count is known. Each step is exact, or it is marked as unknown.
TEST(Track, CountsExactlyOrSaysThatAStepIsUnknown) {
  const struct {
    const char* name;
    double per_second;
    std::uint64_t interval_usec;
    std::uint64_t gap_usec;  // after the tenth sample
    std::uint64_t unknown;   // of 20 steps
  } rows[] = {
      {"slow", 5, 1'000'000, 0, 0},
      {"wraps every three seconds", 1.4e9, 1'000'000, 0, 0},
      {"wraps in the gap", 1.4e9, 1'000'000, 1'500'000, 0},
      {"may have moved by half of its range in the gap", 1.4e9, 1'000'000, 1'600'000, 1},
      {"a gap of several ranges", 1.4e9, 100'000, 60'000'000, 1},
      {"50 GB/s at 1 s", 50e9, 1'000'000, 0, 20},
      {"50 GB/s at 50 ms", 50e9, 50'000, 0, 20},
      {"50 GB/s at 10 ms", 50e9, 10'000, 0, 0},
  };
  for (const auto& row : rows) {
    Samples run;
    double truth = 0;
    std::uint64_t now = 1'000'000;
    run.sample(truth, now);
    for (int i = 1; i <= 20; ++i) {
      const std::uint64_t elapsed = i == 10 && row.gap_usec > 0 ? row.gap_usec : row.interval_usec;
      const double step = std::floor(row.per_second * static_cast<double>(elapsed) / 1e6);
      truth += step;
      now += elapsed;
      run.sample(truth, now);
      if (run.track.step() == StepState::known) {
        EXPECT_EQ(run.track.increase(), static_cast<std::uint64_t>(step)) << row.name << i;
      }
    }
    EXPECT_EQ(run.track.unknownSteps(), row.unknown) << row.name;
    if (row.unknown == 0) {
      EXPECT_EQ(run.track.total(), static_cast<std::uint64_t>(truth)) << row.name;
    }
    const auto rate = perSecondSince({}, run.track);
    EXPECT_EQ(rate.has_value(), row.unknown < 20) << row.name;
    if (rate) {
      EXPECT_NEAR(*rate, row.per_second, 1) << row.name;
    }
  }
}

TEST(Track, NeverHasANegativeRateOrCountsAReset) {
  Samples run;
  for (const double value : {500., 1000., 20., 30.}) run.sample(value, run.before_usec + 1000);
  EXPECT_EQ(run.track.total(), 510u);
  EXPECT_EQ(run.track.unknownSteps(), 1u);

  run.sample(40, run.before_usec - 10);  // the clock was stepped back
  EXPECT_EQ(run.track.step(), StepState::unknown);
  run.sample(50, run.before_usec + 1000);
  EXPECT_EQ(run.track.increase(), 10u);

  Samples increases(FieldKind::increase);
  for (const double value : {900., 5., 7.}) increases.sample(value, increases.before_usec + 1000);
  EXPECT_EQ(increases.track.total(), 12u) << "the first sample covers an unknown time";
}

TEST(KindJudge, DecidesOnceAndOnlyWithEvidence) {
  const auto sine = [](double seconds) { return 500 + 400 * std::sin(seconds * 2 * M_PI / 16); };
  const auto ramp = [](double seconds) { return 100 * seconds; };
  const struct {
    const char* name;
    std::function<double(double)> value;  // of the time in seconds
    double step_seconds;
    int samples;
    FieldKind kind;
  } rows[] = {
      {"three samples of a slow sine", sine, 1, 3, FieldKind::undecided},
      {"the rising part of a slow sine", sine, 0.01, 390, FieldKind::undecided},
      {"a sine", sine, 1, 12, FieldKind::gauge},
      {"a fast sine", sine, 3, 60, FieldKind::gauge},
      {"a ramp, too short", ramp, 1, 5, FieldKind::undecided},
      {"a ramp", ramp, 1, 7, FieldKind::counter},
      {"a constant", [](double) { return 7; }, 1, 100, FieldKind::undecided},
      {"too fast to be followed", [](double t) { return 2.8e9 * t; }, 1, 60, FieldKind::undecided},
      {"a ramp that is reset later", [](double t) { return t < 50 ? 100 * t : 100 * (t - 50); }, 1,
       100, FieldKind::counter},
  };
  for (const auto& row : rows) {
    Samples run(FieldKind::undecided);
    for (int i = 0; i < row.samples; ++i)
      run.sample(row.value(i * row.step_seconds),
                 1'000'000 + static_cast<std::uint64_t>(i * row.step_seconds * 1e6));
    EXPECT_STREQ(nameOf(run.track.kind()), nameOf(row.kind)) << row.name;
    EXPECT_EQ(perSecondSince({}, run.track).has_value(), row.kind == FieldKind::counter)
        << row.name;
  }
}

}  // namespace
}  // namespace tev::host
