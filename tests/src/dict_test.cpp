#include "tev/dict.h"

#include <gtest/gtest.h>

#include <utility>

#include "src/support/text.h"
#include "tests/support/captured_log.h"
#include "tests/support/options.h"

namespace {

using namespace tev::test;
using Entries = std::vector<std::pair<std::string, std::string>>;

Entries entriesOf(const tev_custom_options* dict) {
  Entries entries;
  const auto collect = [](const char* key, const char* value, void* user) {
    static_cast<Entries*>(user)->emplace_back(key, value ? value : "<null>");
    return true;
  };
  EXPECT_TRUE(tev_dict_enum(dict, collect, &entries));
  return entries;
}

// With blanks between them.
std::string keysOf(const tev_custom_options* dict) {
  std::string keys;
  for (const auto& entry : entriesOf(dict)) keys += (keys.empty() ? "" : " ") + entry.first;
  return keys;
}

TEST(Dict, EntryInAnothersPlaceGivesWayWhenTheTableGrows) {
  // b, j and c want the buckets 2, 2 and 3 of 4 and of 8. In 4 they stand at 2, 3 and 0. The fourth
  // key makes 8 buckets: c from bucket 0 takes 3 from j, j takes 2 from b, and b goes by 3 to 5.
  const Options dict = options({{"b", "1"}, {"j", "2"}, {"c", "3"}});
  EXPECT_EQ(keysOf(dict.get()), "c b j");
  ASSERT_TRUE(tev_dict_add(dict.get(), "d", "4"));
  EXPECT_EQ(entriesOf(dict.get()), (Entries{{"j", "2"}, {"c", "3"}, {"d", "4"}, {"b", "1"}}));
}

TEST(Dict, OrderIsThatOfTheBucketsAtEverySize) {
  const auto keys = tev::support::split(
      "update \xc3\xa4rger \xff rx tx ecn a b c d e f g h aa bb cc dd ee ff gg hh ii jj kk ll",
      ' ');
  const std::pair<std::size_t, const char*> rows[] = {
      {12, "ecn a b \xc3\xa4rger tx d rx f e update c \xff"},
      {25, "aa a b \xc3\xa4rger tx d rx f e update g h c ff bb ecn kk cc ee hh ii gg dd jj \xff"},
      {26,
       "ff bb hh tx rx update dd gg jj ecn ll aa a b \xc3\xa4rger d e f g h c kk cc ee ii \xff"},
  };
  for (const auto& [count, order] : rows) {
    const Options dict(tev_dict_create());
    for (std::size_t i = 0; i < count; ++i)
      ASSERT_TRUE(tev_dict_add(dict.get(), std::string(keys[i]).c_str(), ""));
    EXPECT_EQ(keysOf(dict.get()), order);
  }

  // Characters count with their sign, which is seen in tables of more than 256 buckets.
  const Options large = options({{"\xff", ""}});
  for (int i = 0; i < 500; ++i) tev_dict_add(large.get(), std::to_string(i).c_str(), "");
  EXPECT_EQ(entriesOf(large.get()).back().first, "\xff");
}

TEST(Dict, KeepsCopiesAndReplacesValues) {
  std::string text = "key";
  const Options dict = options({{text.c_str(), text.c_str()}, {"other", "o"}, {"", ""}});
  text = "xxx";
  EXPECT_STREQ(tev_dict_get(dict.get(), "key"), "key");
  EXPECT_STREQ(tev_dict_get(dict.get(), ""), "");
  EXPECT_EQ(tev_dict_get(dict.get(), "Key"), nullptr);

  const Options copy(tev_dict_dup(dict.get()));
  EXPECT_EQ(entriesOf(copy.get()), entriesOf(dict.get()));
  ASSERT_TRUE(tev_dict_add(copy.get(), "key", nullptr));
  EXPECT_EQ(tev_dict_get(copy.get(), "key"), nullptr);
  const CapturedLog log;
  tev_dict_dump(options({{"a", "1"}, {"b", nullptr}}).get(), "options");
  EXPECT_EQ(log.lines(), linesAt(7, {"options map values: ", "key=a  val=1", "key=b  val=(null)"}));
  EXPECT_STREQ(tev_dict_get(dict.get(), "key"), "key");
}

TEST(Dict, NullsAreAbsence) {
  EXPECT_EQ(tev_dict_get(nullptr, "key"), nullptr);
  EXPECT_FALSE(tev_dict_add(nullptr, "key", "value"));
  EXPECT_TRUE(tev_dict_enum(nullptr, nullptr, nullptr));
  EXPECT_EQ(tev_dict_dup(nullptr), nullptr);
  const Options empty(tev_dict_create());
  EXPECT_EQ(tev_dict_get(empty.get(), nullptr), nullptr);
  EXPECT_FALSE(tev_dict_add(empty.get(), nullptr, "value"));
}

TEST(Dict, BooleanTexts) {
  for (const char* text : {static_cast<const char*>(nullptr), "1", "True", "true"})
    EXPECT_TRUE(tev_string_to_boolean(text)) << (text ? text : "null");
  for (const char* text : {"TRUE", "0", "", "yes", "11"})
    EXPECT_FALSE(tev_string_to_boolean(text)) << text;
  EXPECT_STREQ(boolean_to_string(true), "true");
  EXPECT_STREQ(boolean_to_string(false), "false");
}

}  // namespace
