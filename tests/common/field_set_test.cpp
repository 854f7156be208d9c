#include "tev/field_set.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "src/support/malloc_ptr.h"
#include "tests/support/captured_log.h"
#include "tests/support/temp_tree.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using tev::ProviderFieldSet;
using tev::test::CapturedLog;
using tev::test::LogLine;
using tev::test::TempTree;
using Texts = std::vector<std::string>;

ProviderFieldSet loaded(const Texts& lines) {
  ProviderFieldSet set;
  EXPECT_TRUE(set.loadFromLines(lines));
  return set;
}

TEST(FieldSet, FieldsAreIncludedByTypeAndName) {
  using Names = std::vector<std::pair<std::string, std::string>>;  // type, field
  const std::string longest(127, 'l');
  const struct {
    const char* name;
    Texts lines;
    Names included, excluded;
  } rows[] = {
      {"wildcard",
       {"[multipath_event_*]", "^rx", "bytes$"},
       {{"multipath_event_device", "rx_pkts"},
        {"multipath_event_device", "TX_BYTES"},
        {"multipath_event_plane_1", "rx"},
        {"multipath_event_", "rx"}},
       {{"multipath_event_device", "tx_pkts"}, {"multipath_event", "rx"}, {"", "rx"}}},
      {"no field lines: all",
       {"[counters]"},
       {{"counters", "x"}, {"counters", ""}},
       {{"other", "x"}}},
      {"letter case of types counts", {"[Counters]"}, {{"Counters", "x"}}, {{"counters", "x"}}},
      {"a star elsewhere is text", {"[*a]"}, {{"*a", "x"}}, {{"ba", "x"}}},
      {"a star alone", {"[*]", "rx"}, {{"any", "rx"}}, {{"any", "tx"}, {"", "rx"}}},
      {"default section",
       {"[default]", "device_name"},
       {{"any", "device_name"}, {"any", "My_Device_Name_2"}, {"", "device_name"}},
       {{"any", "rx"}, {"", "rx"}}},
      {"default section without fields", {"[default]"}, {{"any", "x"}, {"", ""}}, {}},
      {"default does not rescue",
       {"[a]", "rx", "[default]", "tx"},
       {{"a", "rx"}, {"b", "tx"}},
       {{"a", "tx"}, {"b", "rx"}}},
      {"a type named default", {"[default]", "a"}, {{"default", "a"}}, {{"default", "b"}}},
      {"default is no wildcard", {"[defaul*]", "a"}, {{"default", "a"}}, {{"other", "a"}}},
      {"any matching pattern will do",
       {"[ab]", "x", "[a*]", "y"},
       {{"ab", "x"}, {"ab", "y"}, {"ac", "y"}},
       {{"ac", "x"}, {"ab", "z"}}},
      {"several types to a section",
       {"[ a\t,, b ,]", "x"},
       {{"a", "x"}, {"b", "x"}},
       {{"a", "y"}, {"", "x"}}},
      {"named again: the later lines",
       {"[a,b]", "x", "[a]", "y"},
       {{"a", "y"}, {"b", "x"}},
       {{"a", "x"}, {"b", "y"}}},
      {"named again without lines: all", {"[a,b]", "x", "[a]"}, {{"a", "y"}}, {{"b", "y"}}},
      {"named twice in a header", {"[a,a]", "x"}, {{"a", "x"}}, {{"a", "y"}}},
      {"lines before a section", {"x", "[a]", "y"}, {{"a", "y"}}, {{"a", "x"}}},
      {"lines of an empty header",
       {"[a]", "x", "[ ,\t,]", "y", "[]", "z"},
       {{"a", "x"}},
       {{"a", "y"}, {"a", "z"}}},
      {"comments, empty lines, CR LF",
       {"# [a]\r", "\r", " [a] \r\n", "  #x", "\t", "y\r"},
       {{"a", "y"}},
       {{"a", "x"}, {"a", "#x"}}},
      {"half a header is a field",
       {"[a]", "[x", "y]", "["},
       {{"a", "[x"}, {"a", "y]"}},
       {{"a", "x"}}},
      {"brackets within", {"[[a]]", "x"}, {{"[a]", "x"}}, {{"a", "x"}}},
      {"only the first occurrence ends", {"[a]", "ab$"}, {{"a", "xab"}}, {{"a", "abab"}}},
      {"cut to 127 characters",
       {"[a]", longest + "x"},
       {{"a", longest}, {"a", longest + "y"}},
       {{"a", longest.substr(1)}}},
      {"a cut takes the anchor too", {"[a]", "^" + longest + "$"}, {{"a", longest + "y"}}, {}},
      {"bytes above 127",
       {"[\xc3\xa4*]", "^\xff"},
       {{"\xc3\xa4t", "\xff_rx"}},
       {{"\xc3\xa4t", "rx"}, {"\xc3", "\xff"}}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const auto set = loaded(row.lines);
    for (const auto& [type, field] : row.included)
      EXPECT_TRUE(set.shouldIncludeField(type, field)) << type << " " << field;
    for (const auto& [type, field] : row.excluded)
      EXPECT_FALSE(set.shouldIncludeField(type, field)) << type << " " << field;
  }
  EXPECT_FALSE(ProviderFieldSet().shouldIncludeField("a", "x"));
}

TEST(FieldSet, TypesOfInterestAreThoseOfThePatterns) {
  const auto set = loaded({"[b, a*]", "x", "[default]"});
  for (const char* type : {"a", "ab", "b", "default"})
    EXPECT_TRUE(set.isTypeOfInterest(type)) << type;
  for (const char* type : {"", "bb", "c"}) EXPECT_FALSE(set.isTypeOfInterest(type)) << type;
  EXPECT_TRUE(loaded({"[*]"}).isTypeOfInterest(""));
  EXPECT_FALSE(ProviderFieldSet().isTypeOfInterest(""));
}

TEST(FieldSet, PatternsCanBeAskedFor) {
  const auto set = loaded({"[b*, a]", "x", "[bb]", "y", "z", "[all]", "[default]", "d"});
  EXPECT_THAT(set.getTypePatterns(), ElementsAre("a", "all", "b*", "bb", "default"));
  EXPECT_THAT(set.getFieldPatterns("bb"), ElementsAre("x", "y", "z"));
  EXPECT_THAT(set.getFieldPatterns("other"), ElementsAre("d"));
  EXPECT_THAT(set.getFieldPatterns(""), ElementsAre("d"));
  EXPECT_THAT(set.getFieldPatterns("all"), IsEmpty());
  EXPECT_THAT(loaded({"[a]", "x", "[a*]"}).getFieldPatterns("a"), IsEmpty());
}

TEST(FieldSet, LoadingAnewForgetsTheOldSections) {
  auto set = loaded({"[a]", "x"});
  const auto copy = set;
  EXPECT_FALSE(set.loadFromLines({"x", "[,]", "y"}));
  EXPECT_FALSE(set.isInitialized());
  EXPECT_TRUE(set.initializeFromLines({"[b]", "y"}));
  EXPECT_FALSE(set.isTypeOfInterest("a"));
  EXPECT_THAT(copy.getFieldPatterns("a"), ElementsAre("x"));
}

// A list for each type pattern would take 10^10 copies.
TEST(FieldSet, ManyTypesWithManyFieldsLoadQuickly) {
  constexpr int kCount = 100'000;
  std::string header = "[";
  Texts lines(1);
  for (int i = 0; i < kCount; ++i) {
    header += std::to_string(i) + ",";
    lines.push_back("f" + std::to_string(i));
  }
  lines[0] = header + "]";
  const auto set = loaded(lines);
  EXPECT_EQ(set.getTypePatterns().size(), std::size_t{kCount});
  EXPECT_TRUE(set.shouldIncludeField("99999", "f99999"));
}

TEST(FieldSet, FilesAreReadLineByLine) {
  TempTree tree;
  const auto path = tree.write("two.parts.fset", "[a]\r\n  rx\r\n\n# %s\n[b]\ntx");
  const CapturedLog log;
  ProviderFieldSet set;
  ASSERT_TRUE(set.initializeFromFile(path.c_str()));
  EXPECT_EQ(set.getName(), "two.parts");
  EXPECT_THAT(set.getFieldPatterns("a"), ElementsAre("rx"));
  EXPECT_THAT(set.getFieldPatterns("b"), ElementsAre("tx"));
  std::vector<LogLine> expected;
  for (const auto& text : Texts{"loading fset file " + path, "[a]\r", "  rx\r", "", "# %s", "[b]",
                                "tx", "-----------------------"})
    expected.push_back({7, "[loadFromFile] " + text});
  EXPECT_EQ(log.lines(), expected);
}

TEST(FieldSet, FilesThatCannotBeUsedAreNamed) {
  TempTree tree;
  const auto folder = tree.folder("folder");
  const auto no_section = tree.write("lines.fset", "rx\n[,]\ntx\n");
  const auto missing = tree.path("missing");
  const struct {
    std::string path;
    LogLine line;
    std::string name;
  } rows[] = {
      {"", {3, "[loadFromFile] empty filename"}, ""},
      {missing, {3, "[loadFromFile] file " + missing + " does not exist"}, ""},
      {folder, {4, "[loadFromFile] cannot open field set file " + folder}, ""},
      {no_section, {4, "[loadFromFile] no patterns found in " + no_section}, "lines"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.path);
    const CapturedLog log(TEV_LEVEL_INFO);
    ProviderFieldSet set;
    EXPECT_FALSE(set.loadFromFile(row.path));
    EXPECT_EQ(log.lines(), (std::vector<LogLine>{row.line}));
    EXPECT_EQ(set.getName(), row.name);
  }
  const CapturedLog log;
  EXPECT_FALSE(ProviderFieldSet().initializeFromFile(nullptr));
  EXPECT_EQ(log.lines(),
            (std::vector<LogLine>{{3, "ProviderFieldSet: missing filename parameter"}}));
}

TEST(FieldSet, ConfigurationIsPrintedAtInfoLevel) {
  const auto set = loaded({"[b,a]", "^x%s", "y$", "[all]"});
  const CapturedLog log;
  set.printConfiguration();
  std::vector<LogLine> expected;
  for (const char* text :
       {" '' configuration:", "  Initialized: yes", "  Type pattern: [a]", "    ^x%s", "    y$",
        "  Type pattern: [all]", "  Type pattern: [b]", "    ^x%s", "    y$"})
    expected.push_back({6, std::string("[printConfiguration]") + text});
  EXPECT_EQ(log.lines(), expected);
}

struct DestroySet {
  void operator()(tev_provider_field_set_t* set) const { tev_provider_field_set_destroy(set); }
};
using Handle = std::unique_ptr<tev_provider_field_set_t, DestroySet>;

TEST(FieldSetHandle, AnswersAsTheSetDoes) {
  TempTree tree;
  const auto path = tree.write("example.fset", "[event_*]\n^rx\n");
  const Handle set(tev_provider_field_set_create());
  ASSERT_TRUE(set);
  EXPECT_FALSE(tev_provider_field_set_is_initialized(set.get()));
  ASSERT_TRUE(tev_provider_field_set_init_from_file(set.get(), path.c_str()));
  EXPECT_TRUE(tev_provider_field_set_is_initialized(set.get()));
  const tev::support::MallocPtr<char> name(tev_provider_field_set_get_name(set.get()));
  EXPECT_STREQ(name.get(), "example");
  EXPECT_TRUE(tev_provider_field_set_is_type_of_interest(set.get(), "event_1"));
  EXPECT_FALSE(tev_provider_field_set_is_type_of_interest(set.get(), "other"));
  EXPECT_TRUE(tev_provider_field_set_should_include_field(set.get(), "event_1", "RX_pkts"));
  EXPECT_FALSE(tev_provider_field_set_should_include_field(set.get(), "event_1", "tx_pkts"));
  EXPECT_TRUE(tev_provider_field_set_print_configuration(set.get()));

  const char* const lines[] = {"[a]", nullptr, "x"};
  EXPECT_TRUE(tev_provider_field_set_init_from_lines(set.get(), lines, 3));
  EXPECT_TRUE(tev_provider_field_set_should_include_field(set.get(), "a", "x"));
  EXPECT_FALSE(tev_provider_field_set_should_include_field(set.get(), "a", "y"));
}

TEST(FieldSetHandle, MissingHandlesAndObjectsAreReported) {
  void* no_object = nullptr;  // a handle is a record of one pointer
  auto* const empty = reinterpret_cast<tev_provider_field_set_t*>(&no_object);
  const char* const lines[] = {"[a]"};
  const struct {
    const char* function;
    std::function<bool(tev_provider_field_set_t*)> call;  // true: not refused
  } rows[] = {
      {"init_from_file", [](auto* s) { return tev_provider_field_set_init_from_file(s, "x"); }},
      {"init_from_lines",
       [&](auto* s) { return tev_provider_field_set_init_from_lines(s, lines, 1); }},
      {"should_include_field",
       [](auto* s) { return tev_provider_field_set_should_include_field(s, "a", "x"); }},
      {"is_type_of_interest",
       [](auto* s) { return tev_provider_field_set_is_type_of_interest(s, "a"); }},
      {"get_name", [](auto* s) { return tev_provider_field_set_get_name(s) != nullptr; }},
      {"is_initialized", [](auto* s) { return tev_provider_field_set_is_initialized(s); }},
      {"print_configuration",
       [](auto* s) { return tev_provider_field_set_print_configuration(s); }},
  };
  for (const auto& row : rows) {
    const CapturedLog log;
    EXPECT_FALSE(row.call(nullptr));
    EXPECT_FALSE(row.call(empty));
    const std::string prefix = "[tev_provider_field_set_" + std::string(row.function) + "] ";
    EXPECT_EQ(log.lines(), (std::vector<LogLine>{{3, prefix + "missing field_set parameter"},
                                                 {3, prefix + "field_set is empty"}}));
  }
  tev_provider_field_set_destroy(nullptr);
  void* const record = std::calloc(1, sizeof(void*));
  tev_provider_field_set_destroy(static_cast<tev_provider_field_set_t*>(record));
}

TEST(FieldSetHandle, ArgumentsAndFailuresAreReported) {
  const Handle set(tev_provider_field_set_create());
  const char* const no_section[] = {"x"};
  const CapturedLog log;
  EXPECT_FALSE(tev_provider_field_set_init_from_file(set.get(), nullptr));
  EXPECT_FALSE(tev_provider_field_set_init_from_file(set.get(), ""));
  EXPECT_FALSE(tev_provider_field_set_init_from_lines(set.get(), nullptr, 1));
  EXPECT_FALSE(tev_provider_field_set_init_from_lines(set.get(), no_section, 0));
  EXPECT_FALSE(tev_provider_field_set_init_from_lines(set.get(), no_section, 1));
  EXPECT_FALSE(tev_provider_field_set_init_from_lines(set.get(), no_section, SIZE_MAX));
  EXPECT_FALSE(tev_provider_field_set_should_include_field(set.get(), nullptr, nullptr));
  EXPECT_FALSE(tev_provider_field_set_should_include_field(set.get(), "a", nullptr));
  EXPECT_FALSE(tev_provider_field_set_is_type_of_interest(set.get(), nullptr));
  const std::string prefix = "[tev_provider_field_set_";
  EXPECT_EQ(log.texts(3),
            (Texts{prefix + "init_from_file] missing fset_filename parameter",
                   "[loadFromFile] empty filename",
                   prefix + "init_from_file] Failed to initialize ProviderFieldSet from file",
                   prefix + "init_from_lines] missing lines parameter",
                   prefix + "init_from_lines] num_lines is 0",
                   prefix + "init_from_lines] Failed to initialize ProviderFieldSet from lines",
                   prefix + "init_from_lines] Failed to initialize ProviderFieldSet from lines",
                   prefix + "should_include_field] missing type_name parameter",
                   prefix + "should_include_field] missing field_name parameter",
                   prefix + "is_type_of_interest] missing type_name parameter"}));
}

}  // namespace
