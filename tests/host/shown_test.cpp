// What is shown: formats, the table, and the figures in them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "host/distribution.h"
#include "host/formatter.h"
#include "host/rates.h"
#include "host/short_number.h"
#include "host/table_layout.h"
#include "host/text.h"
#include "tests/host/process.h"
#include "tests/host/sample_types.h"
#include "tev/schema.h"

namespace tev::host {
namespace {

using test::Bytes;
using test::SampleTypes;
using testing::ElementsAre;

// What a formatter makes of blocks.
template <class MakeFormatter>
std::vector<std::string> formatted(const MakeFormatter& make, const SampleTypes& types,
                                   const Bytes& blocks) {
  const SchemaView schema(*types);
  OutputFile output("/dev/null");
  SeriesTable series;
  const auto formatter = make(schema, output);
  decodeBlocks(schema, blocks,
               [&](const Event& event) { formatter->event(event, series.of(event)); });
  formatter->end({});
  return test::linesOf(output.buffer());
}

TEST(Jsonl, WritesStrictJson) {
  SampleTypes types;
  types.add("quo\"te", {{"na\\me", nullptr, "char", 0, 24},
                        {"on", nullptr, "bool", 0, 1},
                        {"big", nullptr, "uint64_t", 0, 1},
                        {"real", nullptr, "double", 0, 3},
                        {"timestamp", nullptr, "uint8_t", 0, 2}});
  Bytes bytes;
  bytes.block(77, 0, 0, 1).text("\x1f\"\\\n\x7f\xc3\xa4\xff\xed\xa0\x80", 24).u8({1});
  bytes.add(UINT64_MAX).add(HUGE_VAL).add(-0.5).add(std::nan("")).u8({8, 9});
  const auto lines = formatted(makeJsonlFormatter, types, bytes);
  ASSERT_EQ(lines.size(), 1u);
  const auto expected = nlohmann::ordered_json::parse(R"({
      "timestamp": 77, "type": "quo\"te",
      "na\\me": "\u001f\"\\\n\u007fä\\xff\\xed\\xa0\\x80",
      "on": true, "big": 18446744073709551615, "real": [null, -0.5, null],
      "timestamp_2": [8, 9]})");
  EXPECT_EQ(nlohmann::ordered_json::parse(lines[0]), expected) << lines[0];
}

TEST(Csv, HasOneHeaderForAllTypesAndQuotesWhatNeedsIt) {
  SampleTypes types;
  types.add("a", {{"name", nullptr, "char", 0, 8}, {"x,y", nullptr, "uint8_t", 0, 1}});
  types.add("b", {{"extra", nullptr, "uint8_t", 0, 2}, {"name", nullptr, "char", 0, 8}});
  Bytes bytes;
  bytes.block(1, 0, 0, 1).text("say \"hi\"", 8).u8({3});
  bytes.block(2, 0, 1, 1).u8({4, 5}).text("", 8);
  EXPECT_THAT(
      formatted(makeCsvFormatter, types, bytes),
      ElementsAre("timestamp,type,name,\"x,y\",extra", "1,a,\"say \"\"hi\"\"\",3,", "2,b,,,4 5"));
}

TEST(Table, ShowsCountersAcrossTheirEndAndGaugesPlainly) {
  SampleTypes types;
  types.add("net_device_3",
            {{"device_name", nullptr, "char", 0, 4},
             {"bytes", nullptr, "uint32_t", 0, 1},
             {"state", nullptr, "char", 0, 4}},
            {"device_name"});
  types.add("net_plane",
            {{"device_name", nullptr, "char", 0, 4},
             {"plane", nullptr, "uint8_t", 0, 1},
             {"rtt", nullptr, "uint32_t", 0, 1}},
            {"device_name", "plane"});
  Bytes bytes;
  // 3e9 bytes a second: 0, 3e9, 6e9 - 2^32, 9e9 - 2 * 2^32, ...
  for (std::uint64_t s = 0; s < 5; ++s) {
    bytes.block(s * 1000000, 0, 0, 1).text("eth0", 4);
    bytes.add(static_cast<std::uint32_t>(s * 3000000000)).text("\x1b[1m", 4);
    bytes.block(s * 1000000, 0, 1, 1).text("eth0", 4).u8({1}).add(s % 2 ? 70 : 50);
  }
  const auto make = [](const SchemaView&, OutputFile& out) { return makeTableFormatter(out); };
  EXPECT_THAT(
      formatted(make, types, bytes),
      ElementsAre("   whole run: 0.0 s   1 device", "",
                  "eth0                 device             plane 1",
                  "         value change    /s  value change    /s", "  bytes  3.41G +12.0G 3.00G",
                  "  state             \\x1b[1m", "  rtt                           50", ""));
}

TableBlock device(const std::string& title, std::size_t planes) {
  TableBlock block{title, {"bytes", "state"}, {}};
  for (std::size_t p = 0; p < planes; ++p)
    block.columns.push_back(
        {"plane " + std::to_string(p), {{0, {std::to_string(10000 + p), "+1", "9k"}}}});
  block.columns[0].cells[1] = {"a rather long text", "", ""};
  return block;
}

// Changes are left out, and columns put below each other, where the width ends.
TEST(TableLayout, KeepsToAnyWidthAndDropsNothing) {
  const auto nth_line = [](std::size_t width, std::size_t number) {
    return layOutTable({device("d0", 2)}, width, false).at(number);
  };
  EXPECT_EQ(nth_line(47, 1), "         value change    /s  value change    /s");
  EXPECT_EQ(nth_line(47, 3), "  state  a rather long text");
  EXPECT_EQ(nth_line(46, 1), "         value    /s  value    /s");
  EXPECT_EQ(nth_line(32, 3), "  state  a rather l~");
  EXPECT_EQ(nth_line(32, 6), "  bytes  10001    9k");

  for (std::size_t width = 26; width < 250; ++width) {
    std::string all;
    for (const std::string& line : layOutTable({device("d0", 5), device("d1", 1)}, width, false)) {
      EXPECT_LE(displayWidth(line), width) << line;
      all += line;
    }
    for (const char* const value : {"10000", "10001", "10002", "10003", "10004"})
      EXPECT_THAT(all, testing::HasSubstr(value)) << width;
  }
}

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
      {"still", 7, 7, 0, 0},
      {"wrap", 4294967295, 0, 0, 1},
      {"a gauge sinks", 80, 12, 0, -68},
      {"falls by a quarter of the range", kQuarter, 0, 0, -kQuarter},
      {"falls by more than that", kQuarter + 1, 0, 0, kRange - kQuarter - 1},
      {"falls a little after steps of most of the range", 3000000000, 2500000000, 3700000000,
       kRange - 500000000},
      {"falls a little after small steps", 3000000000, 2500000000, 1000, -500000000},
      {"wrap of 64 bits", UINT64_MAX, 1, 0, 2, 64},
      {"falls in 64 bits", 10, 3, 0, -7, 64},
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

// More than one move in sixteen goes down. Standing still says nothing, and what one series shows
// holds for the field's others.
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
  EXPECT_FALSE(track.perSecond()) << "one sample is no rate";
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

TEST(ShortNumber, FitsFiveCharacters) {
  const std::pair<double, std::string> rows[] = {
      {7, "7"},          {99999, "99999"},    {0.25, "0.25"},    {0.996, "1.0"},
      {9.96, "10.0"},    {99.96, "100"},      {1234.5, "1234"},  {99999.4, "99999"},
      {99999.5, "100k"}, {999499, "999k"},    {999500, "1.00M"}, {12345678, "12.3M"},
      {1.8e19, "18.0E"}, {-2500000, "-2.50M"}};
  for (const auto& [number, text] : rows) EXPECT_EQ(shortNumber(number), text);
}

TEST(Distribution, TellsQuantilesToWithinAThousandth) {
  EXPECT_EQ(Distribution().quantile(0.5), 0u);
  // On either side of the ends of all bins' sizes.
  for (int bits = 0; bits < 64; ++bits) {
    Distribution one;
    const std::uint64_t value = std::uint64_t{1} << bits;
    const std::uint64_t most = value + value / 3;
    for (const std::uint64_t around : {value - 1, value, most}) one.add(around);
    for (const auto& [share, expected] : {std::pair{0.1, value - 1}, {0.5, value}, {1.0, most}}) {
      const auto found = one.quantile(share);
      EXPECT_GE(found, expected) << bits;
      EXPECT_LE(found - expected, expected / 1000) << bits;
    }
  }
}

TEST(Text, TellsUtf8FromOtherBytes) {
  const char* const characters[] = {"a", "\xc2\x80", "\xe2\x82\xac", "\xf4\x8f\xbf\xbf"};
  for (const std::string character : characters) EXPECT_EQ(utf8Length(character), character.size());
  // Nothing, a continuation, ones that are cut or lack theirs, ones that are longer than need be, a
  // surrogate, one beyond the last, and no first byte at all.
  for (const char* const bytes : {"", "\x80", "\xe2\x82", "\xc2\x41", "\xc1\xbf", "\xe0\x9f\xbf",
                                  "\xf0\x8f\xbf\xbf", "\xed\xa0\x80", "\xf4\x90\x80\x80", "\xff"})
    EXPECT_EQ(utf8Length(bytes), 0u) << testing::PrintToString(bytes);
  EXPECT_EQ(asPrintable("a\x1b[2J\xc2\x9b\n\xc3\xa4\xff"), "a\\x1b[2J\\xc2\\x9b\\x0a\xc3\xa4\\xff");
  EXPECT_EQ(padLeft("\xc3\xa4\xc3\xb6\xc3\xbc", 2), "\xc3\xa4~");
}

}  // namespace
}  // namespace tev::host
