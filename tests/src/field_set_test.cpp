#include "tev/field_set.h"

#include <gtest/gtest.h>

#include "tests/support/captured_log.h"

namespace {

using namespace tev::test;
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
      {"wildcard", {"[ev_*]", "^rx", "bytes$"}, {"ev_a/rx", "ev_/TX_BYTES"}, {"ev_a/tx", "ev/rx"}},
      {"no field lines: all", {"[Counters]"}, {"Counters/x", "Counters/"}, {"counters/x"}},
      {"a star elsewhere is text", {"[*a]"}, {"*a/x"}, {"ba/x"}},
      {"default section", {"[default]", "rx"}, {"a/My_RX_2", "/rx"}, {"a/tx", "/tx"}},
      {"default does not rescue", {"[a]", "rx", "[default]", "tx"}, {"a/rx", "b/tx"}, {"a/tx"}},
      {"default is not a wildcard", {"[defaul*]", "a"}, {"default/a"}, {"other/a"}},
      {"any matching pattern will do", {"[ab]", "x", "[a*]", "y"}, {"ab/x", "ab/y"}, {"ac/x"}},
      {"several types to a section", {"[ a\t,, b ,]", "x"}, {"a/x", "b/x"}, {"a/y", "/x"}},
      {"named again: the later lines", {"[a,b]", "x", "[a]", "y"}, {"a/y", "b/x"}, {"a/x", "b/y"}},
      {"lines of an empty header", {"[a]", "x", "[ ,\t,]", "y"}, {"a/x"}, {"a/y"}},
      {"comments, empty lines, CR LF",
       {"# [b]\r", " [a] \r\n", "  #x", "\t", "y\r"},
       {"a/y"},
       {"a/x", "a/#x", "b/y"}},
      {"half a header is a field", {"[a]", "[x", "y]"}, {"a/[x", "a/y]"}, {"a/x"}},
      {"cut to 127 characters",
       {"[a]", longest + "x"},
       {"a/" + longest},
       {"a/" + longest.substr(1)}},
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
}

TEST(FieldSet, PatternsCanBeAskedFor) {
  auto set = loaded({"[b*, a]", "x", "[bb]", "y", "z", "[bbb]", "[default]", "d"});
  EXPECT_EQ(set.getTypePatterns(), (Texts{"a", "b*", "bb", "bbb", "default"}));
  EXPECT_EQ(set.getFieldPatterns("bb"), (Texts{"x", "y", "z"}));
  EXPECT_EQ(set.getFieldPatterns("other"), Texts{"d"});
  EXPECT_EQ(set.getFieldPatterns("bbb"), Texts{});  // all
  for (const char* type : {"a", "bc", "default"}) EXPECT_TRUE(set.isTypeOfInterest(type)) << type;
  for (const char* type : {"", "ab", "other"}) EXPECT_FALSE(set.isTypeOfInterest(type)) << type;

  EXPECT_FALSE(set.loadFromLines({"x", "[,]", "y"}));
  EXPECT_FALSE(set.isInitialized());
  EXPECT_TRUE(set.getTypePatterns().empty());
}

TEST(FieldSet, ConfigurationIsPrintedAtInfoLevel) {
  const auto set = loaded({"[b,a]", "^x%s", "y$"});
  const CapturedLog log;
  set.printConfiguration();
  Texts expected;
  for (const char* text : {" '' configuration:", "  Initialized: yes", "  Type pattern: [a]",
                           "    ^x%s", "    y$", "  Type pattern: [b]", "    ^x%s", "    y$"})
    expected.push_back(std::string("[printConfiguration]") + text);
  EXPECT_EQ(log.lines(), linesAt(6, expected));
}

}  // namespace
