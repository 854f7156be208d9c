#include "tev/dict.h"

#include <gtest/gtest.h>

#include <random>
#include <utility>

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

Texts keysOf(const tev_custom_options* dict) {
  Texts keys;
  for (const auto& entry : entriesOf(dict)) keys.push_back(entry.first);
  return keys;
}

TEST(DictOrder, EntryInAnothersPlaceGivesWayWhenTheTableGrows) {
  // b, j and c want the buckets 2, 2 and 3 of 4 and of 8. In 4 they stand at 2, 3 and 0. The fourth
  // key makes 8 buckets: c from bucket 0 takes 3 from j, j takes 2 from b, and b goes by 3 to 5.
  const Options dict = options({{"b", ""}, {"j", ""}, {"c", ""}});
  EXPECT_EQ(keysOf(dict.get()), (Texts{"c", "b", "j"}));
  ASSERT_TRUE(tev_dict_add(dict.get(), "d", ""));
  EXPECT_EQ(keysOf(dict.get()), (Texts{"j", "c", "d", "b"}));
}

// The order across resizes, as a hash of all keys in their order after every fiftieth one.
TEST(DictOrder, IsAFunctionOfTheKeysAndTheirHistory) {
  for (const auto& [alphabet, expected] :
       {std::pair{2U, 1647481019U}, {26U, 702575656U}, {190U, 4097590531U}}) {
    std::mt19937 random(7);
    const Options dict(tev_dict_create());
    std::uint32_t hash = 0;
    for (int i = 0; i <= 1500; ++i) {
      std::string key(random() % 9, '\0');
      for (char& c : key) c = static_cast<char>('A' + random() % alphabet);
      ASSERT_TRUE(tev_dict_add(dict.get(), key.c_str(), key.c_str()));
      ASSERT_EQ(tev_dict_get(dict.get(), key.c_str()), key);
      if (i % 50 != 0) continue;
      for (const auto& [name, value] : entriesOf(dict.get())) {
        EXPECT_EQ(name, value);
        for (const char c : name + ' ') hash = hash * 31 + static_cast<unsigned char>(c);
      }
    }
    EXPECT_EQ(hash, expected) << alphabet;
  }
}

TEST(Dict, KeepsCopiesAndReplacesTheFirstValue) {
  std::string text = "key";
  const Options dict = options({{text.c_str(), text.c_str()}, {"other", "o"}, {"", ""}});
  text = "xxx";
  EXPECT_STREQ(tev_dict_get(dict.get(), ""), "");
  for (const char* missing : {"Key", "ke", "key ", " "})
    EXPECT_EQ(tev_dict_get(dict.get(), missing), nullptr) << missing;
  EXPECT_STREQ(tev_dict_get(dict.get(), "key"), "key");
  ASSERT_TRUE(tev_dict_add(dict.get(), "key", nullptr));
  EXPECT_EQ(tev_dict_get(dict.get(), "key"), nullptr);

  const Options copy(tev_dict_dup(dict.get()));
  EXPECT_EQ(entriesOf(copy.get()), entriesOf(dict.get()));
  EXPECT_EQ(entriesOf(copy.get()).size(), 3u);
  ASSERT_TRUE(tev_dict_add(copy.get(), "key", tev_dict_get(copy.get(), "other")));
  EXPECT_STREQ(tev_dict_get(copy.get(), "key"), "o");
  EXPECT_EQ(tev_dict_get(dict.get(), "key"), nullptr);
}

TEST(Dict, WalkEndsWhenTheVisitorSaysSo) {
  const Options dict = options({{"a", ""}, {"b", ""}, {"c", ""}});
  int visits = 0;
  const auto until_second = [](const char*, const char*, void* user) {
    return ++*static_cast<int*>(user) < 2;
  };
  EXPECT_FALSE(tev_dict_enum(dict.get(), until_second, &visits));
  EXPECT_EQ(visits, 2);
}

TEST(Dict, NullAndEmptyAreAbsence) {
  EXPECT_EQ(tev_dict_get(nullptr, "key"), nullptr);
  EXPECT_FALSE(tev_dict_add(nullptr, "key", "value"));
  EXPECT_TRUE(tev_dict_enum(nullptr, nullptr, nullptr));
  EXPECT_EQ(tev_dict_dup(nullptr), nullptr);
  tev_dict_delete(nullptr);

  const Options empty(tev_dict_create());
  EXPECT_EQ(tev_dict_get(empty.get(), "key"), nullptr);
  EXPECT_EQ(tev_dict_get(empty.get(), nullptr), nullptr);
  EXPECT_FALSE(tev_dict_add(empty.get(), nullptr, "value"));
  EXPECT_EQ(entriesOf(empty.get()), Entries{});
}

TEST(Dict, DumpListsEntriesAtDebugLevelOnly) {
  const Options dict = options({{"a", "1"}, {"b", nullptr}});
  const CapturedLog log;
  tev_dict_dump(nullptr, "nothing");
  tev_dict_dump(dict.get(), "options");
  EXPECT_EQ(log.lines(), linesAt(7, {"options map values: ", "key=a  val=1", "key=b  val=(null)"}));
}

TEST(DictBoolean, Texts) {
  for (const char* text : {static_cast<const char*>(nullptr), "1", "True", "true"})
    EXPECT_TRUE(tev_string_to_boolean(text)) << (text ? text : "null");
  for (const char* text : {"TRUE", "0", "", "yes", "on", "1 ", "11", "false"})
    EXPECT_FALSE(tev_string_to_boolean(text)) << text;
  EXPECT_STREQ(boolean_to_string(true), "true");
  EXPECT_STREQ(boolean_to_string(false), "false");
}

}  // namespace
