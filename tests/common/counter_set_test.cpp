#include "tev/counter_set.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/captured_log.h"

namespace {

using namespace tev::test;
using testing::ElementsAre;
using testing::Pair;
using testing::UnorderedElementsAre;
using tev::ProviderCounterSet;

ProviderCounterSet loaded(const Texts& lines, const Texts& user_tags = {}) {
  ProviderCounterSet set;
  EXPECT_TRUE(set.loadFromLines(lines, user_tags));
  return set;
}

TEST(CounterSet, PatternsMatchByteWise) {
  const struct {
    const char* pattern;
    Texts matching, other;
  } rows[] = {
      {"rx_bytes", {"rx_bytes"}, {"RX_BYTES", "rx_bytes_total", "xrx_bytes"}},
      {"^tx_", {"tx_", "tx_pkts"}, {"TX_pkts", "atx_", "tx"}},
      {"_drops$", {"_drops", "rx_drops", "_drops_drops"}, {"_drops0", "drops"}},
      {"^rx$", {"rx"}, {"rx0", "0rx", "^rx$"}},
      {"^", {"a", "^"}, {}},
      {"$", {"a", "$"}, {}},
      {"^$", {}, {"a", "^$", "^", "$"}},
      {"^^a", {"^a", "^ab"}, {"a"}},
      {"a$$", {"a$", "ba$"}, {"a"}},
      {"a^b$c", {"a^b$c"}, {"abc"}},
      {"\xc3\xa4$", {"b\xc3\xa4"}, {"b\xc3\x84"}},
      {"two words", {"two words"}, {"two", "words"}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.pattern);
    const auto set = loaded({row.pattern});
    const auto other_set = loaded({"no such counter"});
    const auto check = [&](const std::string& name, bool matches) {
      EXPECT_EQ(set.shouldIncludeCounter(name), matches) << name;
      EXPECT_EQ(other_set.shouldIncludeCounter(name, row.pattern), matches) << name;
      EXPECT_FALSE(other_set.shouldIncludeCounter(name)) << name;
    };
    for (const auto& name : row.matching) check(name, true);
    for (const auto& name : row.other) check(name, false);
    EXPECT_FALSE(set.shouldIncludeCounter(""));
  }
  EXPECT_FALSE(ProviderCounterSet().shouldIncludeCounter("a"));
  EXPECT_FALSE(ProviderCounterSet().shouldIncludeCounter("a", "a"));
}

TEST(CounterSet, LinesBecomePatternsAndAliases) {
  const std::string longest(100'000, 'p');
  const struct {
    const char* name;
    Texts lines, patterns;
    std::string counter, alias;
  } rows[] = {
      {"no alias", {"rx"}, {"rx"}, "rx", ""},
      {"blanks around everything", {" \t rx \t = \t RX \t\r\n"}, {"rx"}, "rx", "RX"},
      {"first '=' separates", {"a=b=c="}, {"a"}, "a", "b=c="},
      {"last alias wins", {"b=1", "a=A", "a=B", "a=C"}, {"a", "b"}, "a", "C"},
      {"repeated without alias", {"a=A", "a"}, {"a"}, "a", ""},
      {"blanks within stay", {"a b = c d"}, {"a b"}, "a b", "c d"},
      {"form feed is text", {"\fa=b\v"}, {"\fa"}, "\fa", "b\v"},
      {"no comments", {"", " ", "\r", "#a", " # b=c", "d#e=f#g"}, {"d#e"}, "d#e", "f#g"},
      {"sorted, not in file order", {"rx_bytes=B", "^rx=R"}, {"^rx", "rx_bytes"}, "rx_bytes", "R"},
      {"exact before suffix", {"abc$=2", "abc=1"}, {"abc", "abc$"}, "abc", "1"},
      {"'$' sorts before '^'", {"^=all", "$=end"}, {"$", "^"}, "abc", "end"},
      {"above 127 sorts last", {"\xff$=2", "a\xff=1"}, {"a\xff", "\xff$"}, "a\xff", "1"},
      {"an empty alias wins too", {"^rx", "rx=B"}, {"^rx", "rx"}, "rx", ""},
      {"very long", {"^" + longest + "=A"}, {"^" + longest}, longest + "q", "A"},
      {"no match", {"a=A"}, {"a"}, "b", ""},
      {"no name", {"^=A"}, {"^"}, "", ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const auto set = loaded(row.lines);
    EXPECT_EQ(set.getCounterPatterns(), row.patterns);
    EXPECT_EQ(set.getCounterAlias(row.counter), row.alias);
  }
}

TEST(CounterSet, UserTagsAreReadFromComments) {
  const auto set = loaded({"# unit = lost: blank before '='", "#unit=bytes", " #  unit= \tpackets ",
                           "## group=lost: two signs", "#uni=short", "#group=", "#other=x", "unit"},
                          {"uni", "unit", "group", "absent"});
  EXPECT_THAT(
      set.getUserTagValues(),
      UnorderedElementsAre(Pair("unit", "packets"), Pair("uni", "short"), Pair("group", "")));
  EXPECT_THAT(set.getCounterPatterns(), ElementsAre("unit"));

  // The first tag in the given order wins.
  const auto tags = [](const Texts& order) {
    return loaded({"#a=b=c", "x"}, order).getUserTagValues();
  };
  EXPECT_THAT(tags({"a=b", "a"}), ElementsAre(Pair("a=b", "c")));
  EXPECT_THAT(tags({"a", "a=b"}), ElementsAre(Pair("a", "b=c")));
  EXPECT_TRUE(tags({}).empty());
}

TEST(CounterSet, ReadingTellsWhatItDoes) {
  CapturedLog log;
  ProviderCounterSet set;
  EXPECT_TRUE(set.initializeFromLines({" %s = 100%n ", "#c", "name=", "=", "=alias", " = b=c"}));
  const auto debug = [](const std::string& text) { return LogLine{7, "[loadFromLines] " + text}; };
  const auto trimmed = [&](const std::string& line) {
    return debug("Trimmed line: '" + line + "'");
  };
  const auto invalid = [](const std::string& line, const std::string& reason) {
    return LogLine{4, "[loadFromLines] Invalid line: " + line + " \xe2\x80\x94 " + reason};
  };
  const std::string missing = "missing field name or pattern after '='";
  EXPECT_EQ(
      log.lines(),
      (LogLines{debug("Loading cset file from lines..."), trimmed("%s = 100%n"),
                debug("Parsed: counter_pattern='%s', alias='100%n'"),
                debug("Add mapping: counter_pattern=%s -> alias=100%n (counter_pattern_to_alias_)"),
                trimmed("name="), invalid("name=", missing), trimmed("="), invalid("=", missing),
                trimmed("=alias"), debug("Parsed: counter_pattern='', alias='alias'"),
                invalid("=alias", "empty counter pattern"), trimmed("= b=c"),
                debug("Parsed: counter_pattern='', alias='b=c'"),
                invalid("= b=c", "empty counter pattern")}));
  log.clear();

  for (const char* counter : {"%s", "", "x"}) set.getCounterAlias(counter);
  ProviderCounterSet().getCounterAlias("x");
  EXPECT_EQ(
      log.lines(),
      linesAt(7, {"[getCounterAlias] Counter '%s' matches pattern '%s', return alias '100%n'",
                  "[getCounterAlias] Empty counter name, return empty string",
                  "[getCounterAlias] Counter 'x' not found in any pattern, return empty string",
                  "[getCounterAlias] No counter patterns defined in counter_pattern_to_alias_, "
                  "return empty string"}));
}

TEST(CounterSet, LoadingAnewForgetsTheOldEntries) {
  auto set = loaded({"#tag=1", "a=A"}, {"tag"});
  EXPECT_TRUE(set.loadFromLines({"b"}, {"tag"}));
  EXPECT_THAT(set.getCounterPatterns(), ElementsAre("b"));
  EXPECT_TRUE(set.getUserTagValues().empty());
  EXPECT_FALSE(set.loadFromLines({}));
  EXPECT_FALSE(set.isInitialized());
}

TEST(CounterSet, ConfigurationIsPrintedAtInfoLevel) {
  const auto set = loaded({"#tag=value", "b=B", "a"}, {"tag"});
  const CapturedLog log;
  set.printConfiguration();
  ProviderCounterSet().printConfiguration();
  Texts expected;
  for (const char* text : {"'' configuration:", "Initialized: yes",
                           "Counter pattern: [a], alias: []", "Counter pattern: [b], alias: [B]",
                           "User tag: tag, Value: value", "'' configuration:", "Initialized: no"})
    expected.push_back(std::string("[printConfiguration] ") + text);
  EXPECT_EQ(log.lines(), linesAt(6, expected));
}

}  // namespace
