// Events on their way from a plug-in's bytes to a formatter.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/delivery.h"
#include "host/errors.h"
#include "host/values.h"
#include "tests/host/sample_types.h"

namespace tev::host {
namespace {

using test::Bytes;
using test::SampleTypes;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::ThrowsMessage;

TEST(SchemaView, TakesNestedFieldsApartWithUniqueNames) {
  SampleTypes types;
  types.add("pair", {{"a", nullptr, "uint8_t", 0, 1}, {"b", nullptr, "uint16_t", 0, 2}});
  types.add("outer",
            {{"type", nullptr, "uint8_t", 0, 1},
             {"one", nullptr, "pair", 0, 1},
             {"many", nullptr, "pair", 0, 2},
             {"name", nullptr, "char", 0, 3},
             {"type", nullptr, "uint8_t", 0, 1}},
            {"name", "one"});
  const SchemaView view(*types);
  const TypeView& outer = view.types().at(1);
  const auto placed = [](const std::vector<Column>& columns) {
    std::string text;
    for (const Column& one : columns) text += one.name + "@" + std::to_string(one.offset) + " ";
    return text;
  };
  EXPECT_EQ(placed(outer.columns),
            "type_2@0 one.a@1 one.b@2 many[0].a@6 many[0].b@7 many[1].a@11 many[1].b@12 name@16 "
            "type_3@19 ");
  EXPECT_EQ(placed(outer.keys), "name@16 one.a@1 one.b@2 ");
}

TEST(SchemaView, RefusesTypesThatDoNotHoldTogether) {
  SampleTypes far, small, wide;
  for (SampleTypes* const types : {&far, &small})
    types->add("t", {{"a", nullptr, "uint32_t", 0, 2}});
  far.first().fields[0]->offset = ~std::uint64_t{0} - 3;
  small.first().size = 7;
  // Each type holds two hundred of the one before: more columns than anybody can hold.
  wide.add("t0", {{"a", nullptr, "uint8_t", 0, 1}});
  for (const char* const name : {"t0", "t1", "t2", "t3"})
    wide.add(std::string("t") + static_cast<char>(name[1] + 1), {{"a", nullptr, name, 0, 200}});
  const std::pair<SampleTypes*, const char*> rows[] = {
      {&far, "beyond"}, {&small, "beyond"}, {&wide, "too many"}};
  for (const auto& row : rows)
    EXPECT_THAT([&] { const SchemaView view(**row.first); },
                ThrowsMessage<RunError>(HasSubstr(row.second)));
}

// "time type value value ..." of every event. The bytes lie in memory of exactly their size, so
// that the sanitizers see every read beyond them.
std::vector<std::string> decoded(const SampleTypes& types, const Bytes& bytes) {
  const auto exact = std::make_unique<std::uint8_t[]>(bytes.size());
  std::copy(bytes.begin(), bytes.end(), exact.get());
  std::vector<std::string> events;
  decodeBlocks(SchemaView(*types), {exact.get(), bytes.size()}, [&](const Event& event) {
    std::string text = std::to_string(event.timestamp_usec) + " " + event.type->name;
    for (const Column& column : event.type->columns) {
      text += " ";
      appendPlain(text, column, event.data);
    }
    events.push_back(text);
  });
  return events;
}

TEST(Decoder, ReadsEveryBuiltInType) {
  const std::pair<std::vector<const char*>, std::string> rows[] = {
      {{"bool"}, "true"},
      {{"char"}, "\\xf0"},
      {{"int8_t"}, "-16"},
      {{"unsigned char", "uint8_t"}, "240"},
      {{"short", "int16_t"}, "-3600"},
      {{"unsigned short", "uint16_t"}, "61936"},
      {{"int", "int32_t"}, "-202182160"},
      {{"unsigned int", "uint32_t"}, "4092785136"},
      {{"long", "long long", "int64_t"}, "-579005069656919568"},
      {{"unsigned long", "unsigned long long", "uint64_t", "timestamp"}, "17867739004052632048"},
      {{"float"}, "-3.8496183e+31"},
      {{"double"}, "-7.581280411902108e+269"}};
  int count = 0;
  for (const auto& [names, text] : rows)
    for (const char* const name : names) {
      SampleTypes types;
      types.add("t", {{"a", nullptr, name, 0, 1}});
      Bytes bytes;
      bytes.block(5, 0, 0, 1).u8({0xf0, 0xf1, 0xf2, 0xf3, 0xf4, 0xf5, 0xf6, 0xf7});
      bytes.resize(16 + types.first().size);
      EXPECT_THAT(decoded(types, bytes), ElementsAre("5 t " + text)) << name;
      ++count;
    }
  EXPECT_EQ(count, TEV_TYPE_TIMESTAMP);
}

TEST(Decoder, ReadsArraysAndSeveralBlocks) {
  SampleTypes types;
  types.add("a", {{"name", nullptr, "char", 0, 4}, {"n", nullptr, "uint8_t", 0, 3}});
  types.add("b", {{"v", nullptr, "uint8_t", 0, 1}});
  Bytes bytes;
  bytes.block(UINT64_MAX, 0, 1, 2).u8({7, 8});
  bytes.block(1, 0, 0, 1).text("full", 4).u8({1, 2, 3});
  bytes.block(2, 0, 1, 0).block(3, 0, 0, 1).text("no", 4).u8({4, 5, 6});
  EXPECT_THAT(decoded(types, bytes),
              ElementsAre("18446744073709551615 b 7", "18446744073709551615 b 8", "1 a full 1 2 3",
                          "3 a no 4 5 6"));
}

TEST(Decoder, RefusesMalformedBlocks) {
  SampleTypes types;
  types.add("t", {{"v", nullptr, "uint32_t", 0, 1}});
  const Bytes whole = Bytes().block(1, 0, 0, 1).u8({1, 2, 3, 4});
  const std::pair<Bytes, const char*> rows[] = {
      {Bytes().text("TEVe", 20), "it begins with 54 45 56 65"},
      {Bytes().text("TEVE", 15), "15 bytes are left, less than a header"},
      {Bytes().block(1, 1, 0, 0), "there is no type 0 in schema 1"},
      {Bytes().block(1, 0, 1, 0), "there is no type 1 in schema 0"},
      {Bytes().block(1, 0, 256, 0), "there is no type 256 in schema 0"},
      {Bytes().block(1, 255, 65535, 0), "there is no type 65535 in schema 255"},
      {Bytes().block(1, 0, 0, 1).u8({1, 2, 3}), "1 events of 4 bytes do not fit into the 3 bytes"},
      {Bytes().block(1, 0, 0, 255).u8({1, 2, 3, 4}), "255 events of 4 bytes do not fit"}};
  for (const auto& [bad, reason] : rows) {
    Bytes bytes = whole;
    bytes.insert(bytes.end(), bad.begin(), bad.end());
    EXPECT_THAT([&] { decoded(types, bytes); },
                ThrowsMessage<RunError>(HasSubstr(std::string("block at byte 20: ") + reason)));
  }
}

class CountingFormatter : public Formatter {
 public:
  void event(const Event&, const Series&) override { ++count; }
  std::uint64_t count = 0;
};

TEST(Delivery, IsCompleteWhenEveryDeviceHasItsSamplesOrHasGone) {
  SampleTypes types;
  types.add("t", {{"port", nullptr, "uint8_t", 0, 1}}, {"port"});
  const SchemaView schema(*types);
  const DeviceFilter devices;
  const struct {
    std::optional<std::uint64_t> limit;
    int of_first, of_second;
    bool complete;
    std::uint64_t passed_on;
  } rows[] = {{3, 0, 0, false, 0},
              {3, 5, 2, false, 5},
              {3, 5, 3, true, 6},
              {3, 1, 3 + 3 + 10, false, 4},
              {3, 1, 3 + 3 + 10 + 1, true, 4},
              {std::nullopt, 100, 0, false, 100}};
  for (const auto& row : rows) {
    CountingFormatter formatter;
    Delivery delivery(schema, devices, formatter, row.limit);
    for (int i = 0; i < row.of_first; ++i) delivery.consume(Bytes().block(1, 0, 0, 1).u8({1}));
    for (int i = 0; i < row.of_second; ++i) delivery.consume(Bytes().block(1, 0, 0, 1).u8({2}));
    EXPECT_EQ(delivery.isComplete(), row.complete) << row.of_first << " " << row.of_second;
    EXPECT_EQ(formatter.count, row.passed_on);
  }
}

}  // namespace
}  // namespace tev::host
