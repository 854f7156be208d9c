#include "host/figures/windows.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "host/events/decoder.h"
#include "tests/host/sample_types.h"

namespace tev::host {
namespace {

TEST(Buckets, AreWithinASixtyFourthOfTheNearestRank) {
  std::mt19937_64 random(5);
  for (const unsigned bits : {32u, 64u}) {
    Buckets buckets(bits);
    std::vector<std::uint64_t> values{0, bits == 32 ? UINT32_MAX : UINT64_MAX};
    while (values.size() < 1000) values.push_back(random() >> (64 - random() % bits - 1));
    for (const std::uint64_t value : values) buckets.add(value);
    std::ranges::sort(values);
    for (const double q : {0.001, 0.25, 0.5, 0.9, 0.99, 1.0}) {
      const auto exact =
          static_cast<double>(values[static_cast<std::size_t>(std::ceil(q * 1000)) - 1]);
      EXPECT_LE(std::abs(static_cast<double>(buckets.quantile(q, 1000)) - exact), exact / 64) << q;
    }
  }
}

// A burst of one sample is visible in its window, a gap is counted, and the planes are compared.
TEST(Windows, HaveTheFiguresOfTheirSamples) {
  test::SampleTypes types;
  types.add("plane",
            {{"device", nullptr, "char", 0, 4},
             {"plane", nullptr, "uint8_t", 0, 1},
             {"rx_bytes", nullptr, "uint32_t", 0, 1},
             {"depth", nullptr, "uint32_t", 0, 1}},
            {"device", "plane"});
  const SchemaView schema = SchemaView::fromTypeSystem(*types);
  const Projection projection(schema);
  Figures figures(projection, {.counters = {}, .gauges = {"depth"}}, 1000);
  SeriesTable series;
  std::string text;
  Windows windows(figures, 10'000,
                  {[&](const SeriesWindow& one) {
                     const FieldWindow& bytes = one.fields[0];
                     text += fmt::format(
                         "{} {}: {} samples, {} missing, sum {}, mean {:.0f}, max {:.0f} at {}, "
                         "depth {} {} {} {}\n",
                         one.begin_usec, one.series->series->keys[0], one.samples, one.missing,
                         bytes.sum, bytes.meanPerSecond().value_or(-1),
                         bytes.highest_per_usec * 1e6, bytes.highest_at_usec, one.fields[1].min,
                         one.mean(1), one.fields[1].max, one.quantile(1, 0.5));
                   },
                   [&](const DeviceWindow& one) {
                     for (const Comparison& field : one.fields)
                       text += fmt::format(
                           "{} {}: worst {}, imbalance {:.2f}, share {:.2f}{}\n", one.begin_usec,
                           field.field, field.planes[field.worst]->keys[0], field.imbalance,
                           field.share(field.worst), field.is_significant ? "" : " (chance)");
                   }});
  std::uint32_t total[2] = {4'294'960'000, 0};  // the first one wraps around
  for (std::uint64_t ms = 10; ms < 21; ++ms) {
    if (ms == 15 || ms == 16) continue;  // two samples are missing
    for (std::uint8_t plane = 0; plane < 2; ++plane) {
      total[plane] += ms == 13 && plane == 0 ? 9000 : 1000;
      test::Bytes bytes;
      bytes.block(ms * 1000, 0, 0, 1).text("d0", 4).u8({plane}).add(total[plane]);
      bytes.add(static_cast<std::uint32_t>(ms));
      decodeBlocks(schema, bytes, [&](const Event& event) {
        figures.sample(event, series.of(event));
        windows.sample(event, series.of(event));
      });
    }
  }
  EXPECT_EQ(text,
            "10000 0: 8 samples, 2 missing, sum 15000, mean 1666667, max 9000000 at 13000, "
            "depth 10 14.25 19 13\n"
            "10000 1: 8 samples, 2 missing, sum 7000, mean 777778, max 1000000 at 11000, "
            "depth 10 14.25 19 13\n"
            "10000 rx_bytes: worst 0, imbalance 1.36, share 0.68\n"
            "10000 depth: worst 0, imbalance 1.00, share 0.50 (chance)\n");
  text.clear();
  windows.complete(UINT64_MAX);
  EXPECT_NE(text.find("20000 1: 1 samples, 0 missing, sum 1000"), std::string::npos) << text;
}

TEST(Windows, ArePartialWhereTheSeriesBeginsOrEnds) {
  const struct {
    std::uint64_t first, last, interval;
    bool is_last, partial;
  } rows[] = {{2010, 5000, 10, false, false}, {2020, 5000, 10, false, true},
              {1000, 2995, 10, true, false},  {1000, 2900, 10, true, true},
              {1000, 2900, 10, false, false}, {2001, 5000, 0, false, true}};
  for (const auto& row : rows) {
    SeriesFigures series;
    series.first_usec = row.first;
    series.last_usec = row.last;
    SeriesWindow window;
    window.series = &series;
    window.begin_usec = 2000;
    window.end_usec = 3000;
    EXPECT_EQ(isPartial(window, row.interval, row.is_last), row.partial) << row.first << row.last;
  }
}

// The time stamp of a sample is from before its read. A slow read returns a newer value, whose step
// then looks too fast.
TEST(Figures, DoNotTrustTheStepOfASlowRead) {
  test::SampleTypes types;
  types.add("t", {{"device", nullptr, "char", 0, 4}, {"rx_bytes", nullptr, "uint32_t", 0, 1}},
            {"device"});
  const SchemaView schema = SchemaView::fromTypeSystem(*types);
  const Projection projection(schema);
  const struct {
    double per_usec;
    std::uint64_t slow_usec;                  // the fifth read
    std::uint64_t unknown;                    // steps
    std::uint64_t length_usec = 100'000'000;  // of a window
  } rows[] = {{100, 50'000, 0},
              {10'000, 100'000, 0},
              {10'000, 600'000, 2},
              {100, 50'000, 0, 30'000},
              {10'000, 600'000, 2, 30'000}};
  for (const auto& row : rows) {
    Figures figures(projection, {.counters = {"rx_bytes"}, .gauges = {}}, 10'000);
    SeriesTable series;
    FieldWindow all;
    Windows windows(figures, row.length_usec,
                    {[&](const SeriesWindow& one) {
                       all.sum += one.fields[0].sum;
                       all.known_usec += one.fields[0].known_usec;
                       all.unknown += one.fields[0].unknown;
                       all.highest_per_usec =
                           std::max(all.highest_per_usec, one.fields[0].highest_per_usec);
                     },
                     [](const DeviceWindow&) {}});
    std::uint64_t now = 0;
    for (int i = 0; i < 20; ++i) {
      now += 10'000;
      const std::uint64_t late = i == 5 ? row.slow_usec : 0;
      const auto value = static_cast<std::uint64_t>(row.per_usec * static_cast<double>(now + late));
      test::Bytes bytes;
      bytes.block(now, 0, 0, 1).text("d0", 4).add(static_cast<std::uint32_t>(value));
      decodeBlocks(schema, bytes, [&](const Event& event) {
        figures.sample(event, series.of(event));
        windows.sample(event, series.of(event));
      });
      now += late;
    }
    windows.complete(UINT64_MAX);
    const Track& track = figures.all()[0].tracks[0];
    EXPECT_EQ(track.unknownSteps(), row.unknown) << row.slow_usec;
    EXPECT_LE(track.highestPerSecond(), row.per_usec * 1.01e6) << row.slow_usec;
    EXPECT_LE(all.highest_per_usec, row.per_usec * 1.01) << row.slow_usec;
    EXPECT_EQ(all.sum, track.total());
    EXPECT_EQ(all.known_usec, track.knownUsec());
    EXPECT_EQ(all.unknown, row.unknown);
    if (row.unknown == 0) {
      EXPECT_EQ(track.total(), static_cast<std::uint64_t>(row.per_usec) * (now - 10'000));
    }
  }
}

}  // namespace
}  // namespace tev::host
