// What counter sets and field sets have in common: their files and their plain functions.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstdlib>
#include <stdexcept>

#include "src/support/malloc_ptr.h"
#include "src/support/plain_interface.h"
#include "tests/support/captured_log.h"
#include "tests/support/owned.h"
#include "tests/support/temp_tree.h"
#include "tev/counter_set.h"
#include "tev/field_set.h"

namespace {

using namespace tev::test;
using testing::ElementsAre;
using tev::ProviderCounterSet;
using tev::ProviderFieldSet;
using CounterSetPtr = Owned<tev_provider_counter_set_t, tev_provider_counter_set_destroy>;
using FieldSetPtr = Owned<tev_provider_field_set_t, tev_provider_field_set_destroy>;
using OwnText = tev::support::MallocPtr<char>;

Texts patternsOf(const ProviderCounterSet& set) {
  return set.getCounterPatterns();
}
Texts patternsOf(const ProviderFieldSet& set) {
  Texts patterns;
  for (const auto& type : set.getTypePatterns())
    for (const auto& field : set.getFieldPatterns(type)) patterns.push_back(type + field);
  return patterns;
}

template <class Set>
class SetFiles : public testing::Test {
 protected:
  static constexpr bool kCounters = std::is_same_v<Set, ProviderCounterSet>;
  TempTree files;
};
using BothSets = testing::Types<ProviderCounterSet, ProviderFieldSet>;
TYPED_TEST_SUITE(SetFiles, BothSets);

TYPED_TEST(SetFiles, AreReadLineByLine) {
  const auto path = this->files.write("sets/my.parts.set", "[a]\r\n  rx\r\n\n# %s\n[b]\ntx");
  const CapturedLog log;
  TypeParam set;
  ASSERT_TRUE(set.initializeFromFile(path.c_str()));
  EXPECT_EQ(set.getName(), "my.parts");
  EXPECT_EQ(patternsOf(set),
            this->kCounters ? (Texts{"[a]", "[b]", "rx", "tx"}) : (Texts{"arx", "btx"}));
  Texts lines = log.texts(7);
  lines.resize(8);
  const std::string kind = this->kCounters ? "cset" : "fset";
  EXPECT_THAT(lines, ElementsAre("[loadFromFile] loading " + kind + " file " + path,
                                 "[loadFromFile] [a]\r", "[loadFromFile]   rx\r", "[loadFromFile] ",
                                 "[loadFromFile] # %s", "[loadFromFile] [b]", "[loadFromFile] tx",
                                 "[loadFromFile] -----------------------"));
}

TYPED_TEST(SetFiles, ThatCannotBeUsedAreNamed) {
  TempTree& tree = this->files;
  const std::string kind = this->kCounters ? "counter set" : "field set";
  const auto folder = tree.folder("folder");
  const auto pipe = tree.path("pipe.set");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const auto comments = tree.write("comments.set", "# nothing\n\n");
  const auto dangling = tree.link("link.set", "nowhere");
  const auto below_file = comments + "/x";
  const struct {
    std::string path;
    LogLine line;
    std::string name;  // of the set afterwards
  } rows[] = {
      {"", {3, "[loadFromFile] empty filename"}, "before"},
      {dangling, {3, "[loadFromFile] file " + dangling + " does not exist"}, "before"},
      {below_file, {3, "[loadFromFile] file " + below_file + " does not exist"}, "before"},
      {folder, {4, "[loadFromFile] cannot open " + kind + " file " + folder}, "before"},
      {comments, {4, "[loadFromFile] no patterns found in " + comments}, "comments"},
      {pipe, {4, "[loadFromFile] no patterns found in " + pipe}, "pipe"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.path);
    TypeParam set;
    ASSERT_TRUE(set.loadFromFile(tree.write("before.set", "[a]")));
    const CapturedLog log(TEV_LEVEL_INFO);
    EXPECT_FALSE(set.loadFromFile(row.path));
    EXPECT_EQ(log.lines(), LogLines{row.line});
    EXPECT_EQ(set.getName(), row.name);
    EXPECT_EQ(set.isInitialized(), row.name == "before");
  }
  CapturedLog log;
  EXPECT_FALSE(TypeParam().loadFromFile("/dev/zero"));  // no end: not even the part that was read
  EXPECT_EQ(log.texts(4).back(), "[loadFromFile] cannot open " + kind + " file /dev/zero");
  log.clear();
  EXPECT_FALSE(TypeParam().initializeFromFile(nullptr));
  const std::string name = this->kCounters ? "ProviderCounterSet" : "ProviderFieldSet";
  EXPECT_EQ(log.lines(), linesAt(3, {name + ": missing filename parameter"}));
}

TEST(SetHandles, AnswerAsTheSetsDo) {
  TempTree tree;
  const auto counters_file = tree.write("counters.cset", "rx_bytes\n^tx_=TX\n");
  const auto fields_file = tree.write("fields.fset", "[event_*]\n^rx\n");
  const CounterSetPtr counters(tev_provider_counter_set_create());
  const FieldSetPtr fields(tev_provider_field_set_create());
  auto* const c = counters.get();
  auto* const f = fields.get();
  ASSERT_TRUE(c && f);
  EXPECT_FALSE(tev_provider_counter_set_is_initialized(c));
  EXPECT_FALSE(tev_provider_field_set_is_initialized(f));
  ASSERT_TRUE(tev_provider_counter_set_init_from_file(c, counters_file.c_str()));
  ASSERT_TRUE(tev_provider_field_set_init_from_file(f, fields_file.c_str()));
  EXPECT_TRUE(tev_provider_counter_set_is_initialized(c));
  EXPECT_TRUE(tev_provider_field_set_is_initialized(f));
  EXPECT_STREQ(OwnText(tev_provider_counter_set_get_name(c)).get(), "counters");
  EXPECT_STREQ(OwnText(tev_provider_field_set_get_name(f)).get(), "fields");
  EXPECT_TRUE(tev_provider_counter_set_print_configuration(c));
  EXPECT_TRUE(tev_provider_field_set_print_configuration(f));

  const struct {
    const char* name;
    const char* alias;
    bool counter, field, type;
  } rows[] = {{"rx_bytes", nullptr, true, true, false},
              {"tx_pkts", "TX", true, false, false},
              {"RX_BYTES", nullptr, false, true, false},
              {"event_1", nullptr, false, false, true}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(tev_provider_counter_set_should_include_counter(c, row.name), row.counter);
    EXPECT_STREQ(OwnText(tev_provider_counter_set_get_counter_alias(c, row.name)).get(), row.alias);
    EXPECT_EQ(tev_provider_field_set_should_include_field(f, "event_1", row.name), row.field);
    EXPECT_EQ(tev_provider_field_set_is_type_of_interest(f, row.name), row.type);
  }

  const char* const lines[] = {"[a]", nullptr, "b"};
  EXPECT_TRUE(tev_provider_counter_set_init_from_lines(c, lines, 2));
  EXPECT_TRUE(tev_provider_counter_set_should_include_counter(c, "[a]"));
  EXPECT_FALSE(tev_provider_counter_set_should_include_counter(c, "b"));
  EXPECT_TRUE(tev_provider_field_set_init_from_lines(f, lines, 3));
  EXPECT_TRUE(tev_provider_field_set_should_include_field(f, "a", "b"));
  EXPECT_FALSE(tev_provider_field_set_should_include_field(f, "a", "c"));
}

// A call that is refused, and what its last error says.
#define REFUSED(set, function, reason, ...)                                          \
  {                                                                                  \
    const CapturedLog log;                                                           \
    EXPECT_FALSE(tev_provider_##set##_##function(__VA_ARGS__));                      \
    ASSERT_FALSE(log.texts(3).empty());                                              \
    EXPECT_EQ(log.texts(3).back(), "[tev_provider_" #set "_" #function "] " reason); \
  }
// The same without a handle, and with one that has no object.
#define NEEDS_OBJECT(set, function, ...)                                                   \
  REFUSED(set, function, "missing " #set " parameter", nullptr __VA_OPT__(, ) __VA_ARGS__) \
  REFUSED(set, function, #set " is empty",                                                 \
          reinterpret_cast<tev_provider_##set##_t*>(&no_object) __VA_OPT__(, ) __VA_ARGS__)

TEST(SetHandles, MissingHandlesAndObjectsAreReported) {
  void* no_object = nullptr;  // a handle is a record of one pointer
  const char* const lines[] = {"[a]"};
  NEEDS_OBJECT(counter_set, init_from_file, "x");
  NEEDS_OBJECT(counter_set, init_from_lines, lines, 1);
  NEEDS_OBJECT(counter_set, should_include_counter, "a");
  NEEDS_OBJECT(counter_set, get_counter_alias, "a");
  NEEDS_OBJECT(counter_set, get_name);
  NEEDS_OBJECT(counter_set, is_initialized);
  NEEDS_OBJECT(counter_set, print_configuration);
  NEEDS_OBJECT(field_set, init_from_file, "x");
  NEEDS_OBJECT(field_set, init_from_lines, lines, 1);
  NEEDS_OBJECT(field_set, should_include_field, "a", "x");
  NEEDS_OBJECT(field_set, is_type_of_interest, "a");
  NEEDS_OBJECT(field_set, get_name);
  NEEDS_OBJECT(field_set, is_initialized);
  NEEDS_OBJECT(field_set, print_configuration);

  const CapturedLog log;
  tev_provider_counter_set_destroy(nullptr);
  tev_provider_field_set_destroy(nullptr);
  const auto hollow = [] { return std::calloc(1, sizeof(void*)); };
  tev_provider_counter_set_destroy(static_cast<tev_provider_counter_set_t*>(hollow()));
  tev_provider_field_set_destroy(static_cast<tev_provider_field_set_t*>(hollow()));
  EXPECT_EQ(log.lines(),
            linesAt(3, {"[tev_provider_field_set_destroy] missing field_set parameter"}));
}

TEST(SetHandles, ArgumentsAndFailuresAreReported) {
  const CounterSetPtr counters(tev_provider_counter_set_create());
  const FieldSetPtr fields(tev_provider_field_set_create());
  auto* const c = counters.get();
  auto* const f = fields.get();
  const char* const none[] = {"#"};
#define NO_SET(from) "Failed to initialize ProviderCounterSet from " from
  REFUSED(counter_set, init_from_file, "missing cset_filename parameter", c, nullptr);
  REFUSED(counter_set, init_from_file, NO_SET("file"), c, "");
  REFUSED(counter_set, init_from_lines, "missing lines parameter", c, nullptr, 1);
  REFUSED(counter_set, init_from_lines, "num_lines is 0", c, none, 0);
  REFUSED(counter_set, init_from_lines, NO_SET("lines"), c, none, 1);
  REFUSED(counter_set, init_from_lines, NO_SET("lines"), c, none, SIZE_MAX);
  REFUSED(counter_set, should_include_counter, "missing counter_name parameter", c, nullptr);
  REFUSED(counter_set, get_counter_alias, "missing counter_name parameter", c, nullptr);
#undef NO_SET
#define NO_SET(from) "Failed to initialize ProviderFieldSet from " from
  REFUSED(field_set, init_from_file, "missing fset_filename parameter", f, nullptr);
  REFUSED(field_set, init_from_file, NO_SET("file"), f, "");
  REFUSED(field_set, init_from_lines, "missing lines parameter", f, nullptr, 1);
  REFUSED(field_set, init_from_lines, "num_lines is 0", f, none, 0);
  REFUSED(field_set, init_from_lines, NO_SET("lines"), f, none, 1);
  REFUSED(field_set, init_from_lines, NO_SET("lines"), f, none, SIZE_MAX);
  REFUSED(field_set, should_include_field, "missing type_name parameter", f, nullptr, nullptr);
  REFUSED(field_set, should_include_field, "missing field_name parameter", f, "a", nullptr);
  REFUSED(field_set, is_type_of_interest, "missing type_name parameter", f, nullptr);
}

TEST(PlainInterface, ExceptionsBecomeTheDocumentedLine) {
  const CapturedLog log;
  const auto thrower = []() -> int { throw std::runtime_error("reason %s"); };
  EXPECT_EQ(tev::support::attempt("f", {"Failed to count"}, -1, thrower), -1);
  EXPECT_EQ(tev::support::attempt("f", {"Failed to count"}, -1, [] { return 5; }), 5);
  EXPECT_FALSE(tev::support::succeeds("g", {"Failed for", "x"}, []() -> bool { throw 1; }));
  EXPECT_TRUE(tev::support::succeeds("g", {"Failed for", "x"}, [] { return true; }));
  EXPECT_EQ(log.lines(), (LogLines{{7, "[f] reason %s"},
                                   {3, "[f] Failed to count"},
                                   {7, "[g] unknown exception"},
                                   {3, "[g] Failed for 'x'"}}));
}

}  // namespace
