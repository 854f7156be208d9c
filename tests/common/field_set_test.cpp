#include "tev/field_set.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <utility>

#include "tests/support/captured_log.h"

namespace {

using namespace tev::test;
using testing::ElementsAre;
using testing::IsEmpty;
using tev::ProviderFieldSet;

ProviderFieldSet loaded(const Texts& lines) {
  ProviderFieldSet set;
  EXPECT_TRUE(set.loadFromLines(lines));
  return set;
}

TEST(FieldSet, FieldsAreIncludedByTypeAndName) {
  const std::string longest(127, 'l');
  const struct {
    const char* name;
    Texts lines, included, excluded;  // the latter: a type, a '/' and a field
  } rows[] = {
      {"wildcard",
       {"[event_*]", "^rx", "bytes$"},
       {"event_device/rx_pkts", "event_device/TX_BYTES", "event_/rx"},
       {"event_device/tx_pkts", "event/rx", "/rx"}},
      {"no field lines: all", {"[counters]"}, {"counters/x", "counters/"}, {"other/x"}},
      {"letter case of types counts", {"[Counters]"}, {"Counters/x"}, {"counters/x"}},
      {"a star elsewhere is text", {"[*a]"}, {"*a/x"}, {"ba/x"}},
      {"a star alone", {"[*]", "rx"}, {"any/rx"}, {"any/tx", "/rx"}},
      {"default section", {"[default]", "rx"}, {"a/rx", "a/My_RX_2", "/rx"}, {"a/tx", "/tx"}},
      {"default section without fields", {"[default]"}, {"any/x", "/"}, {}},
      {"default does not rescue",
       {"[a]", "rx", "[default]", "tx"},
       {"a/rx", "b/tx"},
       {"a/tx", "b/rx"}},
      {"a type named default", {"[default]", "a"}, {"default/a"}, {"default/b"}},
      {"default is no wildcard", {"[defaul*]", "a"}, {"default/a"}, {"other/a"}},
      {"any matching pattern will do",
       {"[ab]", "x", "[a*]", "y"},
       {"ab/x", "ab/y", "ac/y"},
       {"ac/x", "ab/z"}},
      {"several types to a section", {"[ a\t,, b ,]", "x"}, {"a/x", "b/x"}, {"a/y", "/x"}},
      {"named again: the later lines", {"[a,b]", "x", "[a]", "y"}, {"a/y", "b/x"}, {"a/x", "b/y"}},
      {"named again without lines: all", {"[a,b]", "x", "[a]"}, {"a/y"}, {"b/y"}},
      {"named twice in a header", {"[a,a]", "x"}, {"a/x"}, {"a/y"}},
      {"lines before a section", {"x", "[a]", "y"}, {"a/y"}, {"a/x"}},
      {"lines of an empty header",
       {"[a]", "x", "[ ,\t,]", "y", "[]", "z"},
       {"a/x"},
       {"a/y", "a/z"}},
      {"comments, empty lines, CR LF",
       {"# [a]\r", "\r", " [a] \r\n", "  #x", "\t", "y\r"},
       {"a/y"},
       {"a/x", "a/#x"}},
      {"half a header is a field", {"[a]", "[x", "y]", "["}, {"a/[x", "a/y]"}, {"a/x"}},
      {"brackets within", {"[[a]]", "x"}, {"[a]/x"}, {"a/x"}},
      {"only the first occurrence ends", {"[a]", "ab$"}, {"a/xab"}, {"a/abab"}},
      {"cut to 127 characters",
       {"[a]", longest + "x"},
       {"a/" + longest, "a/" + longest + "y"},
       {"a/" + longest.substr(1)}},
      {"a cut takes the anchor too", {"[a]", "^" + longest + "$"}, {"a/" + longest + "y"}, {}},
      {"bytes above 127",
       {"[\xc3\xa4*]", "^\xff"},
       {"\xc3\xa4t/\xff_rx"},
       {"\xc3\xa4t/rx", "\xc3/\xff"}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const auto set = loaded(row.lines);
    const auto includes = [&](const std::string& text) {
      const auto slash = text.find('/');
      return set.shouldIncludeField(text.substr(0, slash), text.substr(slash + 1));
    };
    for (const auto& text : row.included) EXPECT_TRUE(includes(text)) << text;
    for (const auto& text : row.excluded) EXPECT_FALSE(includes(text)) << text;
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

TEST(FieldSet, ConfigurationIsPrintedAtInfoLevel) {
  const auto set = loaded({"[b,a]", "^x%s", "y$", "[all]"});
  const CapturedLog log;
  set.printConfiguration();
  Texts expected;
  for (const char* text :
       {" '' configuration:", "  Initialized: yes", "  Type pattern: [a]", "    ^x%s", "    y$",
        "  Type pattern: [all]", "  Type pattern: [b]", "    ^x%s", "    y$"})
    expected.push_back(std::string("[printConfiguration]") + text);
  EXPECT_EQ(log.lines(), linesAt(6, expected));
}

}  // namespace
