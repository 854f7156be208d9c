#include "tev/dict.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <optional>
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

// The order of keys, from a table that is rebuilt beside the old one instead of inside it.
class OrderModel {
 public:
  void add(const std::string& key) {
    if (size_ >= bound_) grow();
    auto& bucket = buckets_[place(buckets_, key)];
    if (!bucket) ++size_;
    bucket = key;
  }

  Texts keys() const {
    Texts keys;
    for (const auto& bucket : buckets_)
      if (bucket) keys.push_back(*bucket);
    return keys;
  }

 private:
  using Buckets = std::vector<std::optional<std::string>>;

  static std::uint64_t hash(const std::string& key) {
    std::int64_t hash = 0;  // of the last 32 bits; a byte above 127 counts as negative
    for (const char c : key) hash = (hash * 31 + static_cast<signed char>(c)) % (1LL << 32);
    return static_cast<std::uint64_t>(hash);
  }

  // Triangular steps from the home bucket, to the key or the first empty bucket.
  static std::size_t place(const Buckets& buckets, const std::string& key) {
    for (std::uint64_t k = 0;; ++k) {
      const auto at = static_cast<std::size_t>((hash(key) + k * (k + 1) / 2) % buckets.size());
      if (!buckets[at] || *buckets[at] == key) return at;
    }
  }

  void grow() {
    Buckets old = std::exchange(buckets_, Buckets(std::max<std::size_t>(4, buckets_.size() * 2)));
    for (auto& bucket : old) {
      std::optional<std::string> waiting = std::exchange(bucket, std::nullopt);
      while (waiting) {
        const std::size_t to = place(buckets_, *waiting);
        buckets_[to] = std::exchange(waiting, std::nullopt);
        if (to < old.size()) waiting = std::exchange(old[to], std::nullopt);
      }
    }
    bound_ = (buckets_.size() * 77 + 50) / 100;
  }

  Buckets buckets_;
  std::size_t size_ = 0;
  std::size_t bound_ = 0;
};

TEST(DictOrder, EntryInAnothersPlaceGivesWayWhenTheTableGrows) {
  // b, j and c want the buckets 2, 2 and 3 of 4 and of 8. In 4 they stand at 2, 3 and 0. The fourth
  // key makes 8 buckets: c from bucket 0 takes 3 from j, j takes 2 from b, and b goes by 3 to 5.
  const Options dict = options({{"b", ""}, {"j", ""}, {"c", ""}});
  EXPECT_EQ(keysOf(dict.get()), (Texts{"c", "b", "j"}));
  ASSERT_TRUE(tev_dict_add(dict.get(), "d", ""));
  EXPECT_EQ(keysOf(dict.get()), (Texts{"j", "c", "d", "b"}));
}

TEST(DictOrder, FollowsTheModelAcrossResizes) {
  std::mt19937 random(7);
  for (const int alphabet : {2, 26, 190}) {
    const Options dict(tev_dict_create());
    OrderModel model;
    for (int i = 0; i < 1500; ++i) {
      std::string key(random() % 9, '\0');
      for (char& c : key)
        c = static_cast<char>('A' + static_cast<int>(random() % static_cast<unsigned>(alphabet)));
      ASSERT_TRUE(tev_dict_add(dict.get(), key.c_str(), key.c_str()));
      model.add(key);
      if (i % 50 == 0) {
        ASSERT_EQ(keysOf(dict.get()), model.keys()) << "alphabet " << alphabet << ", key " << i;
      }
    }
    ASSERT_EQ(keysOf(dict.get()), model.keys()) << "alphabet " << alphabet;
    for (const auto& key : model.keys()) ASSERT_EQ(tev_dict_get(dict.get(), key.c_str()), key);
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
