// Common tests of counter sets and field sets: their files and their C functions.
#include <gtest/gtest.h>

#include "src/support/malloc_ptr.h"
#include "tests/support/captured_log.h"
#include "tests/support/owned.h"
#include "tests/support/temp_tree.h"
#include "tev/counter_set.h"
#include "tev/field_set.h"

namespace {

using namespace tev::test;
using tev::ProviderCounterSet;
using tev::ProviderFieldSet;
using CounterSetPtr = Owned<tev_provider_counter_set_t, tev_provider_counter_set_destroy>;
using FieldSetPtr = Owned<tev_provider_field_set_t, tev_provider_field_set_destroy>;
using OwnText = tev::support::MallocPtr<char>;

TEST(SetFiles, AreReadLineByLine) {
  TempTree files;
  const auto path = files.write("sets/my.parts.set", "\xEF\xBB\xBF[a]\r\n\n# %s\ntx");
  ProviderFieldSet fields;
  ASSERT_TRUE(fields.initializeFromFile(path.c_str()));
  EXPECT_EQ(fields.getFieldPatterns("a"), Texts{"tx"});
  const CapturedLog log;
  ProviderCounterSet set;
  ASSERT_TRUE(set.initializeFromFile(path.c_str()));
  EXPECT_EQ(set.getName(), "my.parts");
  EXPECT_EQ(set.getCounterPatterns(), (Texts{"[a]", "tx"}));
  Texts lines = log.texts(7);
  lines.resize(6);
  EXPECT_EQ(lines, (Texts{"[loadFromFile] loading cset file " + path, "[loadFromFile] [a]\r",
                          "[loadFromFile] ", "[loadFromFile] # %s", "[loadFromFile] tx",
                          "[loadFromFile] -----------------------"}));
}

TEST(SetFiles, ThatCannotBeUsedAreNamed) {
  TempTree tree;
  const auto folder = tree.folder("folder");
  const auto empty = tree.write("empty.set", "");
  const auto missing = tree.path("missing");
  const struct {
    std::string path;
    LogLine line;
    std::string name;  // of the set afterwards
  } rows[] = {
      {"", {3, "[loadFromFile] empty filename"}, "before"},
      {missing, {3, "[loadFromFile] file " + missing + " does not exist"}, "before"},
      {folder, {4, "[loadFromFile] cannot open counter set file " + folder}, "before"},
      {empty, {4, "[loadFromFile] no patterns found in " + empty}, "empty"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.path);
    ProviderCounterSet set;
    ASSERT_TRUE(set.loadFromFile(tree.write("before.set", "[a]"), {}));
    const CapturedLog log(TEV_LEVEL_INFO);
    EXPECT_FALSE(set.loadFromFile(row.path, {}));
    EXPECT_EQ(log.lines().back(), row.line);
    EXPECT_EQ(set.getName(), row.name);
    EXPECT_EQ(set.isInitialized(), row.name == "before");
  }
  EXPECT_FALSE(ProviderFieldSet().loadFromFile(folder));
  EXPECT_FALSE(ProviderFieldSet().initializeFromFile(nullptr));
}

class SetHandles : public testing::Test {
 protected:
  CounterSetPtr counters{tev_provider_counter_set_create()};
  FieldSetPtr fields{tev_provider_field_set_create()};
  tev_provider_counter_set_t* c = counters.get();
  tev_provider_field_set_t* f = fields.get();
};

TEST_F(SetHandles, AnswerAsTheSetsDo) {
  TempTree tree;
  const auto file = tree.write("some.set", "[event_*]\n^rx=RX\n");
  EXPECT_FALSE(tev_provider_field_set_is_initialized(f));
  ASSERT_TRUE(tev_provider_counter_set_init_from_file(c, file.c_str()));
  ASSERT_TRUE(tev_provider_field_set_init_from_file(f, file.c_str()));
  EXPECT_TRUE(tev_provider_counter_set_is_initialized(c));
  EXPECT_STREQ(OwnText(tev_provider_field_set_get_name(f)).get(), "some");
  EXPECT_STREQ(OwnText(tev_provider_counter_set_get_counter_alias(c, "rx_0")).get(), "RX");
  EXPECT_EQ(tev_provider_counter_set_get_counter_alias(c, "[event_*]"), nullptr);
  const char* const lines[] = {nullptr, "b"};
  EXPECT_FALSE(tev_provider_counter_set_init_from_lines(c, lines, 1));
}

// A call that is refused, and its last error.
#define REFUSED(set, function, reason, ...)                                          \
  {                                                                                  \
    const CapturedLog log;                                                           \
    EXPECT_FALSE(tev_provider_##set##_##function(__VA_ARGS__));                      \
    ASSERT_FALSE(log.texts(3).empty());                                              \
    EXPECT_EQ(log.texts(3).back(), "[tev_provider_" #set "_" #function "] " reason); \
  }

TEST_F(SetHandles, MissingArgumentsAndFailuresAreReported) {
  const char* const none[] = {"#"};
  REFUSED(counter_set, get_name, "missing counter_set parameter", nullptr);
  REFUSED(field_set, is_initialized, "missing field_set parameter", nullptr);
  void* no_object = nullptr;  // a handle is a record of one pointer
  auto* const hollow = reinterpret_cast<tev_provider_field_set_t*>(&no_object);
  REFUSED(field_set, is_type_of_interest, "field_set is empty", hollow, "a");
  REFUSED(counter_set, init_from_file, "missing cset_filename parameter", c, nullptr);
  REFUSED(counter_set, init_from_lines, "missing lines parameter", c, nullptr, 1);
  REFUSED(counter_set, init_from_lines, "Failed to initialize ProviderCounterSet from lines", c,
          none, SIZE_MAX);
  REFUSED(counter_set, get_counter_alias, "missing counter_name parameter", c, nullptr);
  REFUSED(field_set, init_from_file, "Failed to initialize ProviderFieldSet from file", f, "");
  REFUSED(field_set, init_from_lines, "num_lines is 0", f, none, 0);
  REFUSED(field_set, should_include_field, "missing field_name parameter", f, "a", nullptr);
  tev_provider_counter_set_destroy(nullptr);
  tev_provider_field_set_destroy(nullptr);
}

}  // namespace
