#include <fmt/format.h>
#include <gmock/gmock.h>

#include <cmath>
#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <tuple>

#include "host/outputs/delivery.h"
#include "host/outputs/formats.h"
#include "host/outputs/table_layout.h"
#include "host/support/errors.h"
#include "host/support/text.h"
#include "tests/host/process.h"
#include "tests/host/sample_types.h"

namespace tev::host {
namespace {

using test::Bytes;
using test::SampleTypes;
using testing::ElementsAre;

// What an output writes of blocks, all at once and at the end.
std::vector<std::string> written(const char* format, const SampleTypes& types, const Bytes& blocks,
                                 bool rates = false) {
  const SchemaView schema = SchemaView::fromTypeSystem(*types);
  const Projection projection(schema);
  const test::TempTree tree;
  OutputFile file(tree.path("out"));
  Figures figures(projection, {});
  const auto output = findOutputFormat(format)->make({projection, figures, file, {}, rates, {}});
  Delivery delivery(schema, {output.get()}, figures, std::nullopt, 0);
  delivery.begin();
  delivery.update({});
  delivery.take(blocks);
  delivery.end({});
  return test::linesOf(test::readAll(tree.path("out")));
}

TEST(OutputFormats, HaveOneTable) {
  const std::string manual = test::readAll(EXAMPLES "/../tev-host.md");
  for (const OutputFormat& format : outputFormats()) {
    EXPECT_EQ(findOutputFormat(format.name), &format);
    EXPECT_NE(manual.find(fmt::format("**`{}`**", format.name)), std::string::npos) << format.name;
  }
  EXPECT_THAT(outputFormatNames(), testing::StartsWith("table, jsonl, csv, "));
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
  const auto lines = written("jsonl", types, bytes);
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
  bytes.block(1, 0, 0, 1).text("say \"hi\"", 8).u8({3}).block(2, 0, 1, 0);
  bytes.block(UINT64_MAX, 0, 1, 2).u8({4, 5}).text("", 8).u8({6, 7}).text("no", 8);
  EXPECT_THAT(written("csv", types, bytes),
              ElementsAre("timestamp,type,name,\"x,y\",extra", "1,a,\"say \"\"hi\"\"\",3,",
                          "18446744073709551615,b,,,4 5", "18446744073709551615,b,no,,6 7"));
}

// Both machine-readable formats have the same further columns.
TEST(Rates, MarkEachCounterAndNumberEachEvent) {
  SampleTypes types;
  types.add("t", {{"name", nullptr, "char", 0, 2}, {"bytes", nullptr, "uint32_t", 0, 1}}, {"name"});
  Bytes bytes;
  const std::uint32_t values[] = {5, 15, 3, 13};
  for (std::uint64_t i = 0; i < 4; ++i)
    bytes.block(1000 * (i + 1), 0, 0, 1).text("d", 2).add(values[i]);
  const char* const figures[] = {"null,,undecided", "10,10000,", "10,,unknown",
                                 "20,10000,lower_bound"};
  const auto csv = written("csv", types, bytes, true);
  const auto json = written("jsonl", types, bytes, true);
  ASSERT_EQ(csv.size(), 5u);
  EXPECT_EQ(csv[0],
            "timestamp,type,kind,sample,name,bytes,bytes_total,bytes_per_second,bytes_mark,device,"
            "state,cause,from,to,missing,reason");
  for (std::size_t i = 0; i < 4; ++i) {
    const std::string in_csv = i == 0 ? ",,undecided" : figures[i];
    EXPECT_EQ(csv[i + 1], fmt::format("{},t,device,{},d,{},{},,,,,,,", 1000 * (i + 1), i + 1,
                                      values[i], in_csv));
    const auto object = nlohmann::json::parse(json[i]);
    const auto& rate = object["bytes_per_second"];
    EXPECT_EQ(fmt::format("{},{},{}", object["bytes_total"].dump(), rate.is_null() ? "" : "10000",
                          object["bytes_mark"].get<std::string>()),
              figures[i]);
  }
}

TEST(Trace, HasTracksWithRatesGapsAndSpansAlsoWithoutAnEnd) {
  SampleTypes types;
  types.add("t",
            {{"name", nullptr, "char", 0, 4},
             {"rx\"bytes", nullptr, "uint32_t", 0, 1},
             {"load", nullptr, "double", 0, 2},
             {"quiet", nullptr, "uint32_t", 0, 1},
             {"on", nullptr, "bool", 0, 1}},
            {"name"});
  Bytes bytes;  // the counter goes up, down, and up again after the clock was set back
  for (const auto& [usec, count, load] : {std::tuple{1000u, 5u, std::nan("")},
                                          {2000u, 15u, HUGE_VAL},
                                          {3000u, 3u, 0.5},
                                          {2500u, 9u, 1.5}})
    bytes.block(usec, 0, 0, 1).text("\"\n\xff", 4).add(count).add(load).add(-0.5).add(7u).u8({9});
  std::string text;
  for (const std::string& line : written("trace", types, bytes)) text += line + '\n';
  const auto events = nlohmann::json::parse(text);
  std::map<std::string, std::vector<nlohmann::json>> found;  // by phase
  for (const auto& event : events) found[event["ph"]].push_back(event);

  const std::string device = "\"\\x0a\\xff";
  EXPECT_EQ(found["M"][0]["args"]["name"], device);
  ASSERT_EQ(found["C"].size(), 5u);
  EXPECT_EQ(found["C"][0]["name"], device + " t");
  EXPECT_EQ(found["C"][0]["args"], nlohmann::json::parse(R"({"load[1]":-0.5,"on":1})"));
  EXPECT_EQ(found["C"][1]["args"]["rx\"bytes_per_second"], 10'000);
  EXPECT_FALSE(found["C"][2]["args"].contains("rx\"bytes_per_second"));
  EXPECT_EQ(found["C"][3]["args"]["load[0]"], 1.5);
  EXPECT_EQ(found["C"][4]["args"], nlohmann::json::parse(R"({"quiet":7})"));
  EXPECT_EQ(found["C"][4]["ts"], 1000);
  EXPECT_EQ(found["i"].at(0)["ts"], 2500);
  EXPECT_EQ(found["X"].at(0)["args"]["fields"], "rx\"bytes");
  EXPECT_EQ(found["X"].at(0)["ts"], 2000);

  // What a killed run leaves behind needs only the end of the array.
  const std::size_t cut = text.find(",\n", text.size() / 2);
  EXPECT_TRUE(nlohmann::json::accept(text.substr(0, cut) + ']'));
}

TEST(Table, ShowsCountersAcrossTheirEndAndGaugesPlainly) {
  SampleTypes types;
  types.add("net_device_3",
            {{"device_name", nullptr, "char", 0, 4},
             {"bytes", nullptr, "uint32_t", 0, 1},
             {"state", nullptr, "char", 0, 4},
             {"rtt", nullptr, "uint32_t", 0, 1}},
            {"device_name"});
  Bytes bytes;
  for (std::uint64_t s = 0; s < 5; ++s)
    bytes.block(s * 1000000, 0, 0, 1)
        .text("eth0", 4)
        .add(static_cast<std::uint32_t>(s * 1500000000))
        .text("\x1b[1m", 4)
        .add(s % 2 ? 70 : 50);
  EXPECT_THAT(written("table", types, bytes),
              ElementsAre("   whole run: 0.0 s   1 device", "", "eth0          device",
                          "         value    /s", "  bytes  6.00G 1.50G", "  state      \\x1b[1m",
                          "  rtt       50", ""));
}

// When the width is too small, columns are placed below each other.
TEST(TableLayout, KeepsToAnyWidthAndDropsNothing) {
  TableBlock block{"d0", {"bytes"}, {}, "failing for a very long time", "never moved: a, b"};
  for (const std::string plane : {"0", "1", "2", "3", "4"})
    block.columns.push_back({"plane " + plane, {{0, {"1000" + plane, "9k"}}}});
  for (std::size_t width = 26; width < 250; ++width) {
    std::string all;
    for (const std::string& line : layOutTable({block}, width, false)) {
      EXPECT_LE(displayWidth(line), width) << line;
      all += line;
    }
    for (const char* const value : {"10000", "10001", "10002", "10003", "10004"})
      EXPECT_THAT(all, testing::HasSubstr(value)) << width;
  }
}

// Takes blocks, and the events that a projection chooses, if it has one.
class CountingOutput final : public Output {
 public:
  explicit CountingOutput(const Projection* projection = nullptr) : projection_(projection) {}
  const Projection* projection() const override { return projection_; }
  void blocks(Blocks blocks) override { bytes += blocks.size(); }
  void event(const Event&, const Series&) override { ++events; }
  std::uint64_t bytes = 0;
  std::uint64_t events = 0;

 private:
  const Projection* projection_;
};

TEST(Delivery, GivesEveryOutputWhatItTakes) {
  SampleTypes types;
  types.add("t", {{"port", nullptr, "uint8_t", 0, 1}}, {"port"});
  const SchemaView schema = SchemaView::fromTypeSystem(*types);
  const Projection all(schema);
  const Projection port_2(schema, {.field_set = {}, .counter_set = {}, .filters = {"7", "2"}});
  CountingOutput raw, events(&all), some(&port_2);
  Figures figures(all, {});
  Delivery delivery(schema, {&raw, &events, &some}, figures, std::nullopt, 0);
  delivery.take(Bytes().block(1, 0, 0, 3).u8({1, 2, 3}));
  for (const CountingOutput* one : {&raw, &events, &some}) EXPECT_EQ(one->bytes, 19u);
  EXPECT_EQ(raw.events, 0u);
  EXPECT_EQ(events.events, 3u);
  EXPECT_EQ(some.events, 1u);

  const Bytes malformed = Bytes().text("TEVx", 16);
  EXPECT_THROW(delivery.take(malformed), RunError);
  Delivery(schema, {&raw}, figures, std::nullopt, 0)
      .take(malformed);  // nobody takes events: not decoded
  EXPECT_EQ(raw.bytes, 19u + 16 + 16);
}

TEST(Delivery, IsCompleteWhenEveryDeviceHasItsSamplesOrHasGone) {
  SampleTypes types;
  types.add("t", {{"port", nullptr, "uint8_t", 0, 1}}, {"port"});
  const SchemaView schema = SchemaView::fromTypeSystem(*types);
  const Projection projection(schema);
  const struct {
    std::optional<std::uint64_t> limit;
    int of_first, of_second;
    bool complete;
    std::uint64_t passed_on;
  } rows[] = {{3, 0, 0, false, 0},
              {3, 5, 3, true, 6},
              {3, 1, 3 + 3 + 10, false, 4},
              {3, 1, 3 + 3 + 10 + 1, true, 4},
              {std::nullopt, 100, 0, false, 100}};
  for (const auto& row : rows) {
    CountingOutput output(&projection);
    Figures figures(projection, {});
    Delivery delivery(schema, {&output}, figures, row.limit, 0);
    for (int i = 0; i < row.of_first; ++i) delivery.take(Bytes().block(1, 0, 0, 1).u8({1}));
    for (int i = 0; i < row.of_second; ++i) delivery.take(Bytes().block(1, 0, 0, 1).u8({2}));
    EXPECT_EQ(delivery.isComplete(), row.complete) << row.of_first << " " << row.of_second;
    EXPECT_EQ(output.events, row.passed_on);
  }
}

}  // namespace
}  // namespace tev::host
