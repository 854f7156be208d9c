#include "tev/schema.h"

#include <gtest/gtest.h>

#include "src/data/schema/schema_json.h"
#include "src/support/malloc_ptr.h"
#include "tests/support/captured_log.h"
#include "tests/support/owned.h"
#include "tests/support/temp_tree.h"

namespace {

using namespace tev::test;
using TypeSystemPtr = Owned<tev_type_system_t, tev_destroy_type_system>;
using Fields = std::vector<tev_type_field_info_t>;

class SchemaTest : public testing::Test {
 protected:
  int add(const char* name, const Fields& fields, std::uint8_t* index = nullptr) {
    return tev_schema_add_type(schema, name, fields.data(), fields.size(), index);
  }

  TypeSystemPtr types{tev_create_type_system()};
  tev_schema_t* schema = tev_type_system_add_schema(types.get(), "test", 1, nullptr);
};

// Names of one letter, each the one element of an int field.
Fields ints(const std::string& names) {
  static const char kLetters[][2] = {"a", "b", "c"};
  Fields fields;
  for (const char name : names) fields.push_back({kLetters[name - 'a'], nullptr, "int", 0, 1});
  return fields;
}

const Fields kTwoInts = ints("ab");

TEST_F(SchemaTest, BuiltinTypesHaveTheCompilersSizes) {
  const std::string sizes = "1124881248848124812488";
  ASSERT_EQ(types->builtin->num_types, sizes.size());
  EXPECT_STREQ(types->builtin->name, "<built-in>");
  EXPECT_EQ(types->builtin->version, 1281u);
  for (std::uint32_t id = 1; id <= sizes.size(); ++id) {
    const auto& registered = *types->builtin->types[id - 1];
    EXPECT_EQ(registered.size, static_cast<std::size_t>(sizes[id - 1] - '0')) << registered.name;
    EXPECT_EQ(registered.builtin_id, id);
    EXPECT_EQ(tev_builtin_type_from_name(registered.name), id);
  }
  EXPECT_STREQ(types->builtin->types[13]->name, "int8_t");
  for (const std::uint32_t unknown : {0u, 23u}) EXPECT_EQ(tev_builtin_type_size(unknown), 0u);
}

TEST(ValueTypes, NamesAndTheSynonym) {
  for (const std::uint32_t value : {0u, 1u, 2u})
    EXPECT_EQ(tev_value_type_from_string(tev_value_type_string(value)), value);
  EXPECT_EQ(tev_value_type_from_string("ABSOLUTE_MONOTONIC"), 1u);
  EXPECT_EQ(tev_value_type_string(3), nullptr);
  EXPECT_EQ(tev_value_type_from_string("absolute"), TEV_VALUE_UNKNOWN);
}

TEST_F(SchemaTest, RecordsArePacked) {
  const Fields sample_fields = {
      {"a", "", "uint64_t", 0, 1}, {"b", "", "char", 0, 64}, {"c", "", "uint32_t", 0, 2}};
  const Fields nested_fields = {{"x", "", "bool", 0, 1}, {"samples", "", "sample", 0, 3}};
  std::uint8_t index = 99;
  ASSERT_EQ(add("sample", sample_fields), TEV_SCHEMA_OK);
  ASSERT_EQ(add("nested", nested_fields, &index), TEV_SCHEMA_OK);
  EXPECT_EQ(index, 1);
  for (const auto& [name, size] : {std::pair{"sample", 80u}, {"nested", 241u}, {"missing", 0u}})
    EXPECT_EQ(tev_schema_sizeof_type(schema, name), size);
  EXPECT_EQ(schema->types[0]->fields[2]->offset, 72u);
  EXPECT_EQ(schema->types[1]->fields[1]->type, schema->types[0]);
  EXPECT_EQ(schema->types[1]->fields[1]->type_size, 80u);
}

TEST_F(SchemaTest, RefusedTypesLeaveTheSchemaAsItWas) {
  ASSERT_EQ(add("known", kTwoInts), TEV_SCHEMA_OK);
  const Fields itself = {{"a", "", "int", 0, 1}, {"f", "", "self", 0, 1}};
  const struct {
    const char* name;
    Fields fields;
    int status;
    std::string message;
  } rows[] = {
      {"int", kTwoInts, 2, "Schema 'test' already contains type 'int'"},
      {"self", itself, 3,
       "Unable to register type 'self': type 'self' of the field 'f' is undefined"},
      {"new", ints("aab"), 2,
       "[tev_schema_add_type] Failed to register new type 'new': field name 'a' occurs more than "
       "once."},
  };
  for (const auto& row : rows) {
    const CapturedLog log;
    std::uint8_t index = 77;
    EXPECT_EQ(add(row.name, row.fields, &index), row.status) << row.message;
    EXPECT_EQ(log.lines(), linesAt(3, {row.message}));
    EXPECT_EQ(index, 77);
    EXPECT_EQ(schema->num_types, 1);
  }
  EXPECT_EQ(tev_schema_add_type(nullptr, "new", nullptr, 0, nullptr), TEV_SCHEMA_INVALID);
  EXPECT_EQ(add("twice", ints("aa")), TEV_SCHEMA_OK);  // the last name is compared with no other
}

TEST_F(SchemaTest, HoldsAtMost254Types) {
  for (int i = 0; i < 254; ++i)
    ASSERT_EQ(add(("type" + std::to_string(i)).c_str(), kTwoInts), TEV_SCHEMA_OK) << i;
  EXPECT_EQ(add("type0", kTwoInts), TEV_SCHEMA_FULL);  // before the name is looked at
}

TEST_F(SchemaTest, SizesThat64BitsCannotHoldFail) {
  EXPECT_EQ(tev_type_system_max_type_size(types.get()), 0u);  // the built-in types do not count
  types->counters->record_size = 9;
  EXPECT_EQ(tev_type_system_max_type_size(types.get()), 9u);
  // 8 * 65535^3 bytes: a little below 2^51.
  ASSERT_EQ(add("p1", {{"f", "", "uint64_t", 0, 65535}}), TEV_SCHEMA_OK);
  ASSERT_EQ(add("p2", {{"f", "", "p1", 0, 65535}}), TEV_SCHEMA_OK);
  ASSERT_EQ(add("p3", {{"f", "", "p2", 0, 65535}}), TEV_SCHEMA_OK);
  EXPECT_EQ(add("product", {{"f", "", "p3", 0, 65535}}), TEV_SCHEMA_FAILED);
  EXPECT_EQ(add("sum", {{"f", "", "p3", 0, 8000}, {"g", "", "p3", 0, 8000}}), TEV_SCHEMA_FAILED);
  EXPECT_EQ(add("fits", {{"f", "", "p3", 0, 8000}}), TEV_SCHEMA_OK);
  EXPECT_EQ(tev_type_system_max_type_size(types.get()), UINT32_MAX);
}

TEST_F(SchemaTest, FieldIndexes) {
  ASSERT_EQ(add("t", ints("abca")), TEV_SCHEMA_OK);
  const char* const names[] = {"a", "x", "c", nullptr, "b"};
  const CapturedLog log;
  EXPECT_EQ(tev_schema_set_field_indexes(schema, 0, names, 1), TEV_SCHEMA_OK);
  EXPECT_EQ(tev_schema_set_field_indexes(schema, 0, names + 1, 4), TEV_SCHEMA_OK);
  std::string indexes;
  for (int i = 0; i < 4; ++i) indexes += std::to_string(schema->types[0]->fields[i]->index);
  EXPECT_EQ(indexes, "0210");
  std::size_t count = 0;
  const tev::support::MallocPtr<const char*> indexed(
      tev_schema_get_indexed_fields(schema, 0, &count));
  EXPECT_EQ(Texts(indexed.get(), indexed.get() + count), (Texts{"b", "c"}));
  EXPECT_EQ(tev_schema_get_indexed_fields(schema, 1, &count), nullptr);
  EXPECT_EQ(tev_schema_set_field_indexes(schema, 1, names, 1), TEV_SCHEMA_INVALID);
  EXPECT_EQ(log.texts(3).back(),
            "[tev_schema_set_field_indexes] Invalid type_index: 1 (out of range, max: 0)");
}

TEST_F(SchemaTest, FindsTheFirstSchemaOfAnId) {
  ASSERT_EQ(add("t", kTwoInts), TEV_SCHEMA_OK);
  for (int i = 0; i < 2; ++i) tev_type_system_add_schema(types.get(), "empty", 1, nullptr);
  tev_type_system_update_md5_hashes(types.get());
  const std::string unset(32, '0');  // without types, the id stays so
  std::uint8_t index = 9;
  EXPECT_EQ(tev_type_system_find_schema(types.get(), unset.c_str(), &index), 1);
  EXPECT_EQ(index, 1);
  EXPECT_EQ(tev_type_system_find_schema(types.get(), "ff", nullptr), 0);
  EXPECT_EQ(tev_type_system_remove_last_schema(types.get()), 2);
}

TEST_F(SchemaTest, GoldenId) {
  tev_schema_t* mixed = tev_type_system_add_schema(types.get(), "mixed modes", 131844, nullptr);
  const Fields sample = {{"a", "", "uint64_t", TEV_VALUE_RUNNING_SUM, 1},
                         {"name", "a name", "char", 0, 64},
                         {"pair", "two words", "uint32_t", TEV_VALUE_DELTA, 2}};
  const char* name = "name";
  ASSERT_EQ(tev_schema_add_type(mixed, "sample", sample.data(), 3, nullptr), 0);
  ASSERT_EQ(tev_schema_set_field_indexes(mixed, 0, &name, 1), 0);
  EXPECT_TRUE(tev_schema_id_is_unset(&mixed->id));  // until it is computed
  tev_type_system_update_md5_hashes(types.get());
  EXPECT_STREQ(mixed->id_string, "e31ae2712f86f663789450636ba4e4b4");
  const tev::support::MallocPtr<char> text(tev_schema_json_string(mixed));
  ASSERT_NE(text, nullptr);
  EXPECT_EQ(text.get(), readAll(TEST_DATA "/mixed.json"));
  EXPECT_EQ(tev_schema_json_string(schema), nullptr);  // without types
}

TEST_F(SchemaTest, TextsWithoutAFormLeaveTheirKeyOut) {
  tev_schema_t* nameless = tev_type_system_add_schema(types.get(), nullptr, 0xFFFFFFFF, nullptr);
  const Fields fields = {{"bad\xFF", "//\b\f\r\x1f\x7f\xF0\x9F\x98\x80", "char", 7, 1},
                         {"half of a pair \xED\xA0\x80", nullptr, "char", 7, 1}};
  ASSERT_EQ(tev_schema_add_type(nameless, "\xC0\xAF", fields.data(), 2, nullptr), 0);
  ASSERT_EQ(tev_schema_add_type(nameless, "t", nullptr, 0, nullptr), 0);
  std::string text = tev::schema::jsonText(*nameless).value();
  std::erase_if(text, [](char c) { return c == ' ' || c == '\n'; });
  EXPECT_EQ(text,
            R"({"title":"Telumbraschema","tev_version":"1.5.0","provider_version":"255.255.65535",)"
            R"("types":[{"size":2,"fields":[{"description":"\/\/\b\f\r\u001f)"
            "\x7f\xF0\x9F\x98\x80"
            R"(","type_name":"char","offset":0,"type_size":1,"index":0},)"
            R"({"type_name":"char","offset":1,"type_size":1,"index":0}],)"
            R"("type_index":0},{"name":"t","size":0,"fields":[],"type_index":1}]})");
}

TEST(SchemaId, Texts) {
  const std::string text = "00112233445566778899aabbccddeeff";
  tev_schema_id_t id{};
  ASSERT_TRUE(tev_schema_from_id_string("00112233445566778899AABBCCDDEEFF", &id));
  for (int i = 0; i < 16; ++i) EXPECT_EQ(id.bytes[i], i * 0x11);
  for (const std::string& wrong : {std::string(), text.substr(1), text + "0", "g" + text.substr(1),
                                   " " + text, "+1" + text.substr(2)})
    EXPECT_FALSE(tev_schema_from_id_string(wrong.c_str(), &id)) << wrong;
  EXPECT_EQ(tev::support::MallocPtr<char>(tev_schema_id_string(&id)).get(), text);
}

TEST(SchemaId, MarksAndComparison) {
  tev_schema_id_t id{}, high{};
  high.bytes[0] = 0x80;  // compares as unsigned
  tev_schema_id_set_blob(&id);
  EXPECT_GT(tev_compare_schema_id(&high, &id), 0);
  EXPECT_EQ(std::string(id.bytes, id.bytes + 16), "BLOB_DATA_SCHEMA");
  EXPECT_TRUE(tev_schema_id_is_blob(&id) && !tev_schema_id_is_unset(&id));
  tev_copy_schema_id(&id, &high);
  EXPECT_EQ(tev_compare_schema_id(&id, &high), 0);
}

}  // namespace
