#include "host/decoder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "host/errors.h"
#include "host/schema_view.h"
#include "host/values.h"
#include "tests/host/sample_types.h"

namespace tev::host {
namespace {

using test::block;
using test::Bytes;
using test::SampleTypes;
using testing::ElementsAre;
using testing::HasSubstr;

std::vector<std::string> columnNames(const TypeView& type) {
  std::vector<std::string> names;
  for (const Column& column : type.columns) names.push_back(column.name);
  return names;
}

// "time type value value ..." of every event. The bytes lie in memory of exactly their size, so
// that the sanitizers see every read beyond them.
std::vector<std::string> decoded(const SchemaView& schema, const std::vector<std::uint8_t>& bytes) {
  const auto exact = std::make_unique<std::uint8_t[]>(bytes.size());
  std::copy(bytes.begin(), bytes.end(), exact.get());
  std::vector<std::string> events;
  decodeBlocks(schema, {exact.get(), bytes.size()}, [&](const Event& event) {
    std::string text = std::to_string(event.timestamp_usec) + " " + event.type->name;
    for (const Column& column : event.type->columns) {
      text += " ";
      appendPlain(text, column, event.data);
    }
    events.push_back(text);
  });
  return events;
}

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
  EXPECT_THAT(columnNames(outer), ElementsAre("type_2", "one.a", "one.b", "many[0].a", "many[0].b",
                                              "many[1].a", "many[1].b", "name", "type_3"));
  EXPECT_EQ(outer.columns[5].offset, 1u + 5 + 5);
  EXPECT_EQ(outer.columns[6].offset, 1u + 5 + 5 + 1);
  ASSERT_EQ(outer.keys.size(), 3u) << "name, and both fields of one";
  EXPECT_EQ(outer.keys[0].name, "name");
  EXPECT_EQ(outer.keys[2].name, "one.b");

  EXPECT_EQ(view.find(0, 1), &outer);
  EXPECT_EQ(view.find(0, 2), nullptr);
  EXPECT_EQ(view.find(1, 0), nullptr);
  EXPECT_EQ(view.find(255, 65535), nullptr);
}

TEST(SchemaView, RefusesTypesThatDoNotHoldTogether) {
  const auto expectRefusal = [](const SampleTypes& types, const char* reason) {
    try {
      const SchemaView view(*types);
      ADD_FAILURE() << "accepted: " << reason;
    } catch (const RunError& error) {
      EXPECT_THAT(error.what(), HasSubstr(reason));
    }
  };
  {
    SampleTypes types;
    types.add("t", {{"a", nullptr, "uint32_t", 0, 2}});
    types.schema().types[0]->fields[0]->offset = ~std::uint64_t{0} - 3;
    expectRefusal(types, "beyond");
  }
  {
    SampleTypes types;
    types.add("t", {{"a", nullptr, "uint32_t", 0, 2}});
    types.schema().types[0]->size = 7;
    expectRefusal(types, "beyond");
  }
  {  // each type holds two hundred of the one before: more columns than anybody can hold
    SampleTypes types;
    types.add("t0", {{"a", nullptr, "uint8_t", 0, 1}});
    for (int i = 1; i < 5; ++i)
      types.add(("t" + std::to_string(i)).c_str(),
                {{"a", nullptr, ("t" + std::to_string(i - 1)).c_str(), 0, 200}});
    expectRefusal(types, "too many");
  }
}

TEST(Decoder, ReadsEveryBuiltInType) {
  struct Row {
    const char* type;
    Bytes bytes;
    const char* text;
  };
  const std::vector<Row> rows = {
      {"bool", Bytes().add<std::uint8_t>(7), "true"},
      {"char", Bytes().text("x", 1), "x"},
      {"short", Bytes().add<std::int16_t>(-2), "-2"},
      {"int", Bytes().add<std::int32_t>(-3), "-3"},
      {"long", Bytes().add<std::int64_t>(-4), "-4"},
      {"long long", Bytes().add<std::int64_t>(INT64_MIN), "-9223372036854775808"},
      {"unsigned char", Bytes().add<std::uint8_t>(255), "255"},
      {"unsigned short", Bytes().add<std::uint16_t>(65535), "65535"},
      {"unsigned int", Bytes().add<std::uint32_t>(4294967295), "4294967295"},
      {"unsigned long", Bytes().add<std::uint64_t>(8), "8"},
      {"unsigned long long", Bytes().add<std::uint64_t>(UINT64_MAX), "18446744073709551615"},
      {"float", Bytes().add<float>(0.1f), "0.1"},
      {"double", Bytes().add<double>(-2.5e-9), "-2.5e-09"},
      {"int8_t", Bytes().add<std::int8_t>(-128), "-128"},
      {"int16_t", Bytes().add<std::int16_t>(-129), "-129"},
      {"int32_t", Bytes().add<std::int32_t>(INT32_MIN), "-2147483648"},
      {"int64_t", Bytes().add<std::int64_t>(-1), "-1"},
      {"uint8_t", Bytes().add<std::uint8_t>(200), "200"},
      {"uint16_t", Bytes().add<std::uint16_t>(40000), "40000"},
      {"uint32_t", Bytes().add<std::uint32_t>(3000000000), "3000000000"},
      {"uint64_t", Bytes().add<std::uint64_t>(9), "9"},
      {"timestamp", Bytes().add<std::uint64_t>(1700000000000000), "1700000000000000"},
  };
  ASSERT_EQ(rows.size(), std::size_t{TEV_TYPE_TIMESTAMP});
  for (const Row& row : rows) {
    SampleTypes types;
    types.add("t", {{"a", nullptr, row.type, 0, 1}});
    EXPECT_THAT(decoded(SchemaView(*types), block(5, 0, 0, 1, row.bytes.all())),
                ElementsAre(std::string("5 t ") + row.text))
        << row.type;
  }
}

TEST(Decoder, ReadsArraysAndSeveralBlocks) {
  SampleTypes types;
  types.add("a", {{"name", nullptr, "char", 0, 4}, {"n", nullptr, "uint16_t", 0, 3}});
  types.add("b", {{"v", nullptr, "uint8_t", 0, 1}});
  const auto array = [](const char* name, std::uint16_t first) {
    return Bytes().text(name, 4).add(first).add<std::uint16_t>(2).add<std::uint16_t>(3).all();
  };
  auto bytes = block(UINT64_MAX, 0, 1, 3, {7, 8, 9});
  const auto more = {block(1, 0, 0, 1, array("full", 1)), block(2, 0, 1, 0, {}),
                     block(3, 0, 0, 1, array("no", 500))};
  for (const auto& one : more) bytes.insert(bytes.end(), one.begin(), one.end());
  EXPECT_THAT(decoded(SchemaView(*types), bytes),
              ElementsAre("18446744073709551615 b 7", "18446744073709551615 b 8",
                          "18446744073709551615 b 9", "1 a full 1 2 3", "3 a no 500 2 3"));
}

TEST(Decoder, RefusesMalformedBlocks) {
  SampleTypes types;
  types.add("t", {{"v", nullptr, "uint32_t", 0, 1}});
  const SchemaView view(*types);
  const std::vector<std::uint8_t> event{1, 2, 3, 4};
  auto lower_case = block(1, 0, 0, 1, event);
  lower_case[3] = 'e';

  struct Row {
    const char* name;
    std::vector<std::uint8_t> bytes;
  };
  std::vector<Row> rows = {{"magic", lower_case},
                           {"schema", block(1, 1, 0, 1, event)},
                           {"type", block(1, 0, 1, 1, event)},
                           {"high byte of the type", block(1, 0, 256, 1, event)},
                           {"count", block(1, 0, 0, 2, event)}};
  const auto whole = block(1, 0, 0, 1, event);
  for (std::size_t length = 1; length < whole.size(); ++length)
    rows.push_back({"cut", {whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)}});
  for (const Row& row : rows) {
    EXPECT_THROW(decoded(view, row.bytes), RunError) << row.name << " " << row.bytes.size();
    auto second = whole;
    second.insert(second.end(), row.bytes.begin(), row.bytes.end());
    EXPECT_THROW(decoded(view, second), RunError) << row.name << ", as the second block";
  }
}

}  // namespace
}  // namespace tev::host
