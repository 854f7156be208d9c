#include <fmt/format.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <utility>

#include "host/events/decoder.h"
#include "host/events/schema_view.h"
#include "host/events/series.h"
#include "host/events/values.h"
#include "host/support/errors.h"
#include "src/data/schema/schema_json.h"
#include "tests/host/sample_types.h"
#include "tests/support/temp_tree.h"

namespace tev::host {
namespace {

using test::Bytes;
using test::SampleTypes;
using testing::AllOf;
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
  const SchemaView view = SchemaView::fromTypeSystem(*types);
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
  SampleTypes far, wide;
  far.add("t", {{"a", nullptr, "uint32_t", 0, 2}});
  far.first().fields[0]->offset = ~std::uint64_t{0} - 3;
  // Each type has two hundred elements of the previous type: more columns than fit into memory.
  wide.add("t0", {{"a", nullptr, "uint8_t", 0, 1}});
  for (const char* const name : {"t0", "t1", "t2", "t3"})
    wide.add(std::string("t") + static_cast<char>(name[1] + 1), {{"a", nullptr, name, 0, 200}});
  EXPECT_THAT([&] { SchemaView::fromTypeSystem(*far); },
              ThrowsMessage<RunError>(HasSubstr("beyond")));
  EXPECT_THAT([&] { SchemaView::fromTypeSystem(*wide); },
              ThrowsMessage<RunError>(HasSubstr("too many")));
}

// Everything that a view tells.
std::string described(const SchemaView& view) {
  std::string text;
  for (const SchemaView::Schema& schema : view.schemas())
    text += schema.name + " " + schema.id + "\n";
  for (const TypeView& type : view.types()) {
    text += fmt::format("{} {} {}\n", type.name, type.size, type.number);
    for (const auto* columns : {&type.columns, &type.keys})
      for (const Column& one : *columns)
        text +=
            fmt::format("  {}|{}|{} {} {} {} {} {}\n", one.name, one.description, one.builtin_id,
                        one.counting_mode, one.offset, one.element_size, one.count, one.key);
  }
  return text;
}

TEST(SchemaView, IsTheSameFromTypesAndFromTheirJsonText) {
  SampleTypes types;
  types.add("every/\"type\"\\",
            {{"\x01\x7f\xc3\xa4", "line\nend", "bool", TEV_VALUE_DELTA, 1},
             {"text", "", "char", 0, 64},
             {"sum", nullptr, "uint64_t", TEV_VALUE_RUNNING_SUM, 1},
             {"none", nullptr, "uint32_t", 0, 0},
             {"real", nullptr, "double", 0, UINT16_MAX},
             {"last", nullptr, "uint16_t", 0, 0}},
            {"sum", "text"});
  types.add("pair", {{"a", nullptr, "uint8_t", 0, 1}, {"b", nullptr, "uint16_t", 0, 2}}, {"b"});
  types.add("outer", {{"in", nullptr, "pair", 0, 2}, {"k", nullptr, "pair", 0, 1}}, {"k"});
  types.nextSchema("an empty one");
  types.nextSchema("second");
  types.add("pair", {{"c", nullptr, "int8_t", 0, 1}, {"c", nullptr, "float", 0, 1}});
  types.add("outer", {{"in", nullptr, "pair", 0, 1}});
  tev_type_system_update_md5_hashes(&*types);

  std::vector<std::string> texts;
  for (std::size_t i = 0; i < (*types).num_schemas; ++i)
    texts.push_back(schema::jsonText(*(*types).schemas[i]).value_or(""));
  const SchemaView from_types = SchemaView::fromTypeSystem(*types);
  const SchemaView from_texts = SchemaView::fromJson(texts);
  std::string expected = described(from_types);
  expected.erase(expected.find("an empty one"), sizeof "an empty one" - 1);  // has no text
  EXPECT_EQ(described(from_texts), expected);
  EXPECT_EQ(from_texts.types().size(), 5u);
  EXPECT_EQ(from_texts.find(2, 1)->columns.at(1).name, "in.c_2");
  EXPECT_EQ(from_texts.find(1, 0), nullptr);
}

SchemaView fromText(const std::string& text) {
  return SchemaView::fromJson(std::vector{text});
}

TEST(SchemaView, RefusesBrokenTexts) {
  const std::string golden = test::readAll(TEST_DATA "/mixed.json");
  EXPECT_EQ(fromText(golden + "\n").schemas().at(0).id, "e31ae2712f86f663789450636ba4e4b4");
  const struct {
    const char *from, *to, *reason;
  } rows[] = {{"\"types\"", "\"typos\"", "there is no \"types\""},
              {"{", "[", "parse error"},
              {"80", "-80", "\"size\" is not a whole number from 0"},
              {": 64", ": 73", "field 'name' of type 'sample' reaches beyond the type's end"},
              {"uint64_t", "uint128_t", "field 'a' has the type 'uint128_t' of 8 bytes"},
              {"uint64_t", "uint32_t", "field 'a' of type 'sample' is of an unknown type"},
              {"\"a name\"", "7", "\"description\" is not a text"},
              {"\"type_index\": 0", "\"type_index\": 1", "\"type_index\""},
              {"\"fields\": [", "\"fields\": 3, \"x\": [", "\"fields\" is not a list"}};
  for (const auto& [from, to, reason] : rows) {
    std::string text = golden;
    text.replace(text.find(from), std::strlen(from), to);
    EXPECT_THAT([&] { fromText(text); },
                ThrowsMessage<RunError>(AllOf(HasSubstr("is broken: "), HasSubstr(reason))));
  }
  EXPECT_THROW(fromText(golden.substr(0, golden.size() - 1)), RunError);
}

// "time type value value ..." of every event. The bytes lie in memory of exactly their size, so
// that the sanitizers see every read beyond them.
std::vector<std::string> decoded(const SampleTypes& types, const Bytes& bytes) {
  const auto exact = std::make_unique<std::uint8_t[]>(bytes.size());
  std::copy(bytes.begin(), bytes.end(), exact.get());
  std::vector<std::string> events;
  decodeBlocks(SchemaView::fromTypeSystem(*types), {exact.get(), bytes.size()},
               [&](const Event& event) {
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

TEST(SeriesTable, TellsTypesAndWholeKeysApart) {
  SampleTypes types;
  for (const char* const name : {"a", "b"})
    types.add(name, {{"port", nullptr, "char", 0, 4}}, {"port"});
  const SchemaView view = SchemaView::fromTypeSystem(*types);
  SeriesTable table;
  const auto number = [&](std::size_t type, const char* port) {
    return table.of({1, &view.types().at(type), reinterpret_cast<const std::uint8_t*>(port)})
        .number;
  };
  EXPECT_EQ(number(0, "eth0"), 0u);
  EXPECT_EQ(number(0, "eth1"), 1u);
  EXPECT_EQ(number(1, "eth0"), 2u);
  EXPECT_EQ(number(0, "eth0"), 0u);
}

TEST(Decoder, RefusesMalformedBlocks) {
  SampleTypes types;
  types.add("t", {{"v", nullptr, "uint32_t", 0, 1}});
  const Bytes whole = Bytes().block(1, 0, 0, 1).u8({1, 2, 3, 4});
  const std::pair<Bytes, const char*> rows[] = {
      {Bytes().text("TEVe", 20), "it begins with 54 45 56 65"},
      {Bytes().text("TEVE", 15), "15 bytes are left, less than a header"},
      {Bytes().block(1, 0, 1, 0), "there is no type 1 in schema 0"},
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

}  // namespace
}  // namespace tev::host
