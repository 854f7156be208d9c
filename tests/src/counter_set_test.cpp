#include "tev/counter_set.h"

#include <gmock/gmock.h>

#include "tests/support/captured_log.h"

namespace {

using namespace tev::test;
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
      {"_drops$", {"_drops", "_drops_drops"}, {"_drops0", "drops"}},
      {"^rx$", {"rx"}, {"rx0", "0rx", "^rx$"}},
      {"^", {"a"}, {""}},
      {"^$", {}, {"a", "^$", ""}},
      {"a^b$c", {"a^b$c"}, {"abc"}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.pattern);
    const auto set = loaded({row.pattern});
    for (const auto& name : row.matching) EXPECT_TRUE(set.shouldIncludeCounter(name)) << name;
    for (const auto& name : row.other) EXPECT_FALSE(set.shouldIncludeCounter(name)) << name;
  }
  EXPECT_TRUE(loaded({"other"}).shouldIncludeCounter("tx_pkts", "^tx_"));
  EXPECT_FALSE(ProviderCounterSet().shouldIncludeCounter("a", "a"));
}

TEST(CounterSet, LinesBecomePatternsAndAliases) {
  const struct {
    Texts lines, patterns;
    std::string counter, alias;
  } rows[] = {
      {{" \t rx \t = \t R = X= \t\r\n"}, {"rx"}, "rx", "R = X="},
      {{"b=1", "a=A", "a=C"}, {"a", "b"}, "a", "C"},
      {{"a=A", "a"}, {"a"}, "a", ""},
      {{"\fa b=b\v"}, {"\fa b"}, "\fa b", "b\v"},
      {{"", " ", "\r", " # b=c", "d#e=f#g"}, {"d#e"}, "d#e", "f#g"},
      // The first in byte order, not in file order, gives the alias.
      {{"^=all", "$=end"}, {"$", "^"}, "abc", "end"},
      {{"\xff$=2", "a\xff=1"}, {"a\xff", "\xff$"}, "a\xff", "1"},
  };
  for (const auto& row : rows) {
    const auto set = loaded(row.lines);
    EXPECT_EQ(set.getCounterPatterns(), row.patterns);
    EXPECT_EQ(set.getCounterAlias(row.counter), row.alias);
  }
}

TEST(CounterSet, UserTagsAreReadFromComments) {
  auto set = loaded({"# unit = lost: blank before '='", "#unit=bytes", " #  unit= \tpackets ",
                     "## group=lost: two signs", "#uni=short", "#a=b=c", "#other=x", "unit"},
                    {"uni", "unit", "group", "a=b", "a"});  // of those that fit, the first wins
  EXPECT_THAT(set.getUserTagValues(), UnorderedElementsAre(Pair("unit", "packets"),
                                                           Pair("uni", "short"), Pair("a=b", "c")));

  EXPECT_TRUE(set.loadFromLines({"b"}, {"unit"}));
  EXPECT_EQ(set.getCounterPatterns(), Texts{"b"});
  EXPECT_TRUE(set.getUserTagValues().empty());
  EXPECT_FALSE(set.loadFromLines({}));
  EXPECT_FALSE(set.isInitialized());
}

TEST(CounterSet, ReadingTellsWhatItDoes) {
  CapturedLog log;
  ProviderCounterSet set;
  EXPECT_TRUE(set.initializeFromLines({"=", "=alias", " %s = 100%n "}));
  EXPECT_EQ(
      log.texts(4),
      (Texts{"[loadFromLines] Invalid line: = \xe2\x80\x94 missing field name or pattern after "
             "'='",
             "[loadFromLines] Invalid line: =alias \xe2\x80\x94 empty counter pattern"}));
  EXPECT_TRUE(log.contains(7, "[loadFromLines] Parsed: counter_pattern='%s', alias='100%n'"));
  set.getCounterAlias("%s");
  EXPECT_TRUE(
      log.contains(7, "[getCounterAlias] Counter '%s' matches pattern '%s', return alias '100%n'"));

  set = loaded({"#tag=value", "a=A"}, {"tag"});
  set.printConfiguration();
  EXPECT_EQ(
      log.texts(6),
      (Texts{"[printConfiguration] '' configuration:", "[printConfiguration] Initialized: yes",
             "[printConfiguration] Counter pattern: [a], alias: [A]",
             "[printConfiguration] User tag: tag, Value: value"}));
}

}  // namespace
