#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "host/formatter.h"
#include "host/text.h"
#include "tests/host/process.h"
#include "tests/host/sample_types.h"

namespace tev::host {
namespace {

using test::block;
using test::Bytes;
using test::linesOf;
using test::SampleTypes;
using testing::ElementsAre;

using MakeFormatter = std::unique_ptr<Formatter> (*)(const SchemaView&, OutputFile&);

// What a formatter makes of blocks.
std::vector<std::string> formatted(MakeFormatter make, const SampleTypes& types,
                                   const std::vector<std::uint8_t>& blocks) {
  const SchemaView schema(*types);
  OutputFile output("/dev/null");
  SeriesTable series;
  const auto formatter = make(schema, output);
  decodeBlocks(schema, blocks,
               [&](const Event& event) { formatter->event(event, series.of(event)); });
  formatter->end({});
  return linesOf(output.buffer());
}

TEST(Jsonl, WritesStrictJson) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  SampleTypes types;
  types.add("quo\"te", {{"na\\me", nullptr, "char", 0, 24},
                        {"on", nullptr, "bool", 0, 1},
                        {"big", nullptr, "uint64_t", 0, 1},
                        {"real", nullptr, "double", 0, 3},
                        {"list", nullptr, "int8_t", 0, 2},
                        {"timestamp", nullptr, "uint8_t", 0, 1}});
  const Bytes event = Bytes()
                          .text("\x01\"\\\n\x7f\xc3\xa4\xff\xed\xa0\x80", 24)
                          .add<std::uint8_t>(1)
                          .add<std::uint64_t>(UINT64_MAX)
                          .add(kInfinity)
                          .add(-0.5)
                          .add(std::numeric_limits<double>::quiet_NaN())
                          .add<std::int8_t>(-1)
                          .add<std::int8_t>(2)
                          .add<std::uint8_t>(9);
  const auto lines = formatted(makeJsonlFormatter, types, block(77, 0, 0, 1, event.all()));
  ASSERT_EQ(lines.size(), 1u);
  const auto expected = nlohmann::ordered_json::parse(R"({
      "timestamp": 77, "type": "quo\"te",
      "na\\me": "\u0001\"\\\n\u007fä\\xff\\xed\\xa0\\x80",
      "on": true, "big": 18446744073709551615, "real": [null, -0.5, null], "list": [-1, 2],
      "timestamp_2": 9})");
  EXPECT_EQ(nlohmann::ordered_json::parse(lines[0]), expected) << lines[0];
}

TEST(Csv, HasOneHeaderForAllTypesAndQuotesWhatNeedsIt) {
  SampleTypes types;
  types.add("a", {{"name", nullptr, "char", 0, 8}, {"x,y", nullptr, "uint8_t", 0, 1}});
  types.add("b", {{"extra", nullptr, "uint8_t", 0, 2}, {"name", nullptr, "char", 0, 8}});
  auto blocks = block(1, 0, 0, 1, Bytes().text("say \"hi\"", 8).add<std::uint8_t>(3).all());
  const auto second =
      block(2, 0, 1, 1, Bytes().add<std::uint8_t>(4).add<std::uint8_t>(5).text("", 8).all());
  blocks.insert(blocks.end(), second.begin(), second.end());
  EXPECT_THAT(
      formatted(makeCsvFormatter, types, blocks),
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
  std::vector<std::uint8_t> blocks;
  const auto append = [&](const std::vector<std::uint8_t>& one) {
    blocks.insert(blocks.end(), one.begin(), one.end());
  };
  // 3e9 bytes a second: 0, 3e9, 6e9 - 2^32, 9e9 - 2 * 2^32, ...
  for (std::uint64_t s = 0; s < 5; ++s) {
    append(block(s * 1000000, 0, 0, 1,
                 Bytes()
                     .text("eth0", 4)
                     .add(static_cast<std::uint32_t>(s * 3000000000))
                     .text("\x1b[1m", 4)
                     .all()));
    append(block(
        s * 1000000, 0, 1, 1,
        Bytes().text("eth0", 4).add<std::uint8_t>(1).add<std::uint32_t>(s % 2 ? 70 : 50).all()));
  }
  const auto lines = formatted(
      [](const SchemaView&, OutputFile& out) { return makeTableFormatter(out); }, types, blocks);
  EXPECT_THAT(lines, ElementsAre("   whole run: 0.0 s   1 device", "",
                                 "eth0                 device             plane 1",
                                 "         value change    /s  value change    /s",
                                 "  bytes  3.41G +12.0G 3.00G", "  state             \\x1b[1m",
                                 "  rtt                           50", ""));
}

TEST(Text, TellsUtf8FromOtherBytes) {
  struct Row {
    const char* name;
    std::string bytes;
    std::size_t length;
  };
  const std::vector<Row> rows = {
      {"ASCII", "a", 1},
      {"two bytes", "\xc2\x80", 2},
      {"three bytes", "\xe2\x82\xac", 3},
      {"last code point", "\xf4\x8f\xbf\xbf", 4},
      {"nothing", "", 0},
      {"continuation", "\x80", 0},
      {"cut", "\xe2\x82", 0},
      {"wrong continuation", "\xc2\x41", 0},
      {"overlong, two bytes", "\xc1\xbf", 0},
      {"overlong, three bytes", "\xe0\x9f\xbf", 0},
      {"overlong, four bytes", "\xf0\x8f\xbf\xbf", 0},
      {"surrogate", "\xed\xa0\x80", 0},
      {"beyond the last", "\xf4\x90\x80\x80", 0},
      {"no such first byte", "\xff", 0},
  };
  for (const Row& row : rows) EXPECT_EQ(utf8Length(row.bytes), row.length) << row.name;
  EXPECT_EQ(asPrintable("a\x1b[2J\xc2\x9b\n\xc3\xa4\xff"), "a\\x1b[2J\\xc2\\x9b\\x0a\xc3\xa4\\xff");
  EXPECT_EQ(padLeft("\xc3\xa4\xc3\xb6\xc3\xbc", 2), "\xc3\xa4~");
}

}  // namespace
}  // namespace tev::host
