#include "tev/counter_set.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "src/support/plain_interface.h"
#include "tests/support/captured_log.h"
#include "tests/support/temp_tree.h"

namespace {

using testing::ElementsAre;
using testing::Pair;
using testing::UnorderedElementsAre;
using tev::ProviderCounterSet;
using tev::test::CapturedLog;
using tev::test::LogLine;
using tev::test::TempTree;
using Texts = std::vector<std::string>;

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
    EXPECT_FALSE(set.shouldIncludeCounter(""));
    for (const auto& name : row.matching) {
      EXPECT_TRUE(set.shouldIncludeCounter(name)) << name;
      EXPECT_TRUE(other_set.shouldIncludeCounter(name, row.pattern)) << name;
      EXPECT_FALSE(other_set.shouldIncludeCounter(name)) << name;
    }
    for (const auto& name : row.other) {
      EXPECT_FALSE(set.shouldIncludeCounter(name)) << name;
      EXPECT_FALSE(other_set.shouldIncludeCounter(name, row.pattern)) << name;
    }
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
      {"comments and empty lines",
       {"", " ", "\r", "#a", " # b=c", "d#e=f#g"},
       {"d#e"},
       "d#e",
       "f#g"},
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
  EXPECT_TRUE(loaded({"#unit=bytes", "a"}).getUserTagValues().empty());

  // The first tag in the given order wins.
  EXPECT_THAT(loaded({"#a=b=c", "x"}, {"a=b", "a"}).getUserTagValues(),
              ElementsAre(Pair("a=b", "c")));
  EXPECT_THAT(loaded({"#a=b=c", "x"}, {"a", "a=b"}).getUserTagValues(),
              ElementsAre(Pair("a", "b=c")));
}

TEST(CounterSet, ReadingTellsWhatItDoes) {
  CapturedLog log;
  ProviderCounterSet set;
  EXPECT_TRUE(set.initializeFromLines({" %s = 100%n ", "#c", "name=", "=", "=alias", " = b=c"}));
  const auto debug = [](const std::string& text) { return LogLine{7, "[loadFromLines] " + text}; };
  const auto warning = [](const std::string& line, const std::string& reason) {
    return LogLine{4, "[loadFromLines] Invalid line: " + line + " \xe2\x80\x94 " + reason};
  };
  const std::string missing = "missing field name or pattern after '='";
  const std::string empty = "empty counter pattern";
  EXPECT_EQ(log.lines(),
            (std::vector<LogLine>{
                debug("Loading cset file from lines..."), debug("Trimmed line: '%s = 100%n'"),
                debug("Parsed: counter_pattern='%s', alias='100%n'"),
                debug("Add mapping: counter_pattern=%s -> alias=100%n (counter_pattern_to_alias_)"),
                debug("Trimmed line: 'name='"), warning("name=", missing),
                debug("Trimmed line: '='"), warning("=", missing), debug("Trimmed line: '=alias'"),
                debug("Parsed: counter_pattern='', alias='alias'"), warning("=alias", empty),
                debug("Trimmed line: '= b=c'"), debug("Parsed: counter_pattern='', alias='b=c'"),
                warning("= b=c", empty)}));
  log.clear();

  for (const char* counter : {"%s", "", "x"}) set.getCounterAlias(counter);
  ProviderCounterSet().getCounterAlias("x");
  const char* const no_patterns =
      "[getCounterAlias] No counter patterns defined in counter_pattern_to_alias_, "
      "return empty string";
  EXPECT_EQ(log.texts(7),
            (Texts{"[getCounterAlias] Counter '%s' matches pattern '%s', return alias '100%n'",
                   "[getCounterAlias] Empty counter name, return empty string",
                   "[getCounterAlias] Counter 'x' not found in any pattern, return empty string",
                   no_patterns}));
}

TEST(CounterSet, LoadingAnewForgetsTheOldEntries) {
  auto set = loaded({"#tag=1", "a=A"}, {"tag"});
  EXPECT_TRUE(set.loadFromLines({"b"}, {"tag"}));
  EXPECT_THAT(set.getCounterPatterns(), ElementsAre("b"));
  EXPECT_TRUE(set.getUserTagValues().empty());
  EXPECT_FALSE(set.loadFromLines({}));
  EXPECT_FALSE(set.isInitialized());
}

TEST(CounterSet, FilesAreReadLineByLine) {
  TempTree tree;
  const auto path = tree.write("sets/my.counters.cset",
                               "# tag=value\r\nrx_bytes\r\n\r\n  ^tx_=TX\n_drops$=drops");
  const CapturedLog log;
  ProviderCounterSet set;
  ASSERT_TRUE(set.initializeFromFile(path.c_str(), {"tag"}));
  EXPECT_EQ(set.getName(), "my.counters");
  EXPECT_THAT(set.getUserTagValues(), ElementsAre(Pair("tag", "value")));
  EXPECT_THAT(set.getCounterPatterns(), ElementsAre("^tx_", "_drops$", "rx_bytes"));

  const auto lines = log.texts(7);
  ASSERT_GE(lines.size(), 8u);
  EXPECT_EQ(Texts(lines.begin(), lines.begin() + 8),
            (Texts{"[loadFromFile] loading cset file " + path, "[loadFromFile] # tag=value\r",
                   "[loadFromFile] rx_bytes\r", "[loadFromFile] \r", "[loadFromFile]   ^tx_=TX",
                   "[loadFromFile] _drops$=drops", "[loadFromFile] -----------------------",
                   "[loadFromLines] Loading cset file from lines..."}));
}

TEST(CounterSet, FilesThatCannotBeUsedAreNamed) {
  TempTree tree;
  const auto folder = tree.folder("folder");
  const auto pipe = tree.path("pipe.cset");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const auto comments = tree.write("comments.cset", "# nothing\n\n");
  const auto dangling = tree.link("link.cset", "nowhere");
  const auto below_file = comments + "/x";
  const struct {
    std::string path;
    LogLine line;
    std::string name;  // of the set afterwards
  } rows[] = {
      {"", {3, "[loadFromFile] empty filename"}, "before"},
      {dangling, {3, "[loadFromFile] file " + dangling + " does not exist"}, "before"},
      {below_file, {3, "[loadFromFile] file " + below_file + " does not exist"}, "before"},
      {folder, {4, "[loadFromFile] cannot open counter set file " + folder}, "before"},
      {comments, {4, "[loadFromFile] no patterns found in " + comments}, "comments"},
      {pipe, {4, "[loadFromFile] no patterns found in " + pipe}, "pipe"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.path);
    ProviderCounterSet set;
    ASSERT_TRUE(set.loadFromFile(tree.write("before.cset", "a")));
    const CapturedLog log(TEV_LEVEL_INFO);
    EXPECT_FALSE(set.loadFromFile(row.path));
    EXPECT_EQ(log.lines(), (std::vector<LogLine>{row.line}));
    EXPECT_EQ(set.getName(), row.name);
    EXPECT_EQ(set.isInitialized(), row.name == "before");
  }
  const CapturedLog log;
  EXPECT_FALSE(ProviderCounterSet().initializeFromFile(nullptr));
  EXPECT_EQ(log.lines(),
            (std::vector<LogLine>{{3, "ProviderCounterSet: missing filename parameter"}}));
}

TEST(CounterSet, ConfigurationIsPrintedAtInfoLevel) {
  const auto set = loaded({"#tag=value", "b=B", "a"}, {"tag"});
  const CapturedLog log;
  set.printConfiguration();
  ProviderCounterSet().printConfiguration();
  EXPECT_EQ(log.lines(),
            (std::vector<LogLine>{{6, "[printConfiguration] '' configuration:"},
                                  {6, "[printConfiguration] Initialized: yes"},
                                  {6, "[printConfiguration] Counter pattern: [a], alias: []"},
                                  {6, "[printConfiguration] Counter pattern: [b], alias: [B]"},
                                  {6, "[printConfiguration] User tag: tag, Value: value"},
                                  {6, "[printConfiguration] '' configuration:"},
                                  {6, "[printConfiguration] Initialized: no"}}));
}

struct DestroySet {
  void operator()(tev_provider_counter_set_t* set) const { tev_provider_counter_set_destroy(set); }
};
using Handle = std::unique_ptr<tev_provider_counter_set_t, DestroySet>;
using OwnText = tev::support::MallocPtr<char>;

TEST(CounterSetHandle, AnswersAsTheSetDoes) {
  TempTree tree;
  const auto path = tree.write("example.cset", "rx_bytes\n^tx_=TX\n_drops$=drops\n# comment\n");
  const Handle set(tev_provider_counter_set_create());
  ASSERT_TRUE(set);
  EXPECT_FALSE(tev_provider_counter_set_is_initialized(set.get()));
  EXPECT_FALSE(tev_provider_counter_set_should_include_counter(set.get(), "rx_bytes"));
  ASSERT_TRUE(tev_provider_counter_set_init_from_file(set.get(), path.c_str()));
  EXPECT_TRUE(tev_provider_counter_set_is_initialized(set.get()));
  EXPECT_STREQ(OwnText(tev_provider_counter_set_get_name(set.get())).get(), "example");
  EXPECT_TRUE(tev_provider_counter_set_print_configuration(set.get()));

  const struct {
    const char* counter;
    bool included;
    const char* alias;
  } rows[] = {{"rx_bytes", true, nullptr},
              {"tx_pkts", true, "TX"},
              {"rx_drops", true, "drops"},
              {"RX_BYTES", false, nullptr},
              {"", false, nullptr}};
  for (const auto& row : rows) {
    EXPECT_EQ(tev_provider_counter_set_should_include_counter(set.get(), row.counter), row.included)
        << row.counter;
    EXPECT_STREQ(OwnText(tev_provider_counter_set_get_counter_alias(set.get(), row.counter)).get(),
                 row.alias);
  }

  const char* const lines[] = {"a=A", nullptr, "b"};
  EXPECT_TRUE(tev_provider_counter_set_init_from_lines(set.get(), lines, 2));
  EXPECT_TRUE(tev_provider_counter_set_should_include_counter(set.get(), "a"));
  EXPECT_FALSE(tev_provider_counter_set_should_include_counter(set.get(), "b"));
}

TEST(CounterSetHandle, MissingHandlesAndObjectsAreReported) {
  void* no_object = nullptr;  // a handle is a record of one pointer
  auto* const empty = reinterpret_cast<tev_provider_counter_set_t*>(&no_object);
  const char* const lines[] = {"a"};
  const struct {
    const char* function;
    std::function<bool(tev_provider_counter_set_t*)> call;  // true: not refused
  } rows[] = {
      {"init_from_file", [](auto* s) { return tev_provider_counter_set_init_from_file(s, "x"); }},
      {"init_from_lines",
       [&](auto* s) { return tev_provider_counter_set_init_from_lines(s, lines, 1); }},
      {"should_include_counter",
       [](auto* s) { return tev_provider_counter_set_should_include_counter(s, "a"); }},
      {"get_counter_alias",
       [](auto* s) { return tev_provider_counter_set_get_counter_alias(s, "a") != nullptr; }},
      {"get_name", [](auto* s) { return tev_provider_counter_set_get_name(s) != nullptr; }},
      {"is_initialized", [](auto* s) { return tev_provider_counter_set_is_initialized(s); }},
      {"print_configuration",
       [](auto* s) { return tev_provider_counter_set_print_configuration(s); }},
  };
  for (const auto& row : rows) {
    const CapturedLog log;
    EXPECT_FALSE(row.call(nullptr));
    EXPECT_FALSE(row.call(empty));
    const std::string prefix = "[tev_provider_counter_set_" + std::string(row.function) + "] ";
    EXPECT_EQ(log.lines(), (std::vector<LogLine>{{3, prefix + "missing counter_set parameter"},
                                                 {3, prefix + "counter_set is empty"}}));
  }
  tev_provider_counter_set_destroy(nullptr);
  void* const record = std::calloc(1, sizeof(void*));
  tev_provider_counter_set_destroy(static_cast<tev_provider_counter_set_t*>(record));
}

TEST(CounterSetHandle, ArgumentsAndFailuresAreReported) {
  const Handle set(tev_provider_counter_set_create());
  const char* const no_pattern[] = {"#"};
  const CapturedLog log;
  EXPECT_FALSE(tev_provider_counter_set_init_from_file(set.get(), nullptr));
  EXPECT_FALSE(tev_provider_counter_set_init_from_file(set.get(), ""));
  EXPECT_FALSE(tev_provider_counter_set_init_from_lines(set.get(), nullptr, 1));
  EXPECT_FALSE(tev_provider_counter_set_init_from_lines(set.get(), no_pattern, 0));
  EXPECT_FALSE(tev_provider_counter_set_init_from_lines(set.get(), no_pattern, 1));
  EXPECT_FALSE(tev_provider_counter_set_init_from_lines(set.get(), no_pattern, SIZE_MAX));
  EXPECT_FALSE(tev_provider_counter_set_should_include_counter(set.get(), nullptr));
  EXPECT_EQ(tev_provider_counter_set_get_counter_alias(set.get(), nullptr), nullptr);
  const std::string prefix = "[tev_provider_counter_set_";
  EXPECT_EQ(log.texts(3),
            (Texts{prefix + "init_from_file] missing cset_filename parameter",
                   "[loadFromFile] empty filename",
                   prefix + "init_from_file] Failed to initialize ProviderCounterSet from file",
                   prefix + "init_from_lines] missing lines parameter",
                   prefix + "init_from_lines] num_lines is 0",
                   prefix + "init_from_lines] Failed to initialize ProviderCounterSet from lines",
                   prefix + "init_from_lines] Failed to initialize ProviderCounterSet from lines",
                   prefix + "should_include_counter] missing counter_name parameter",
                   prefix + "get_counter_alias] missing counter_name parameter"}));
}

TEST(PlainInterface, ExceptionsBecomeTheDocumentedLine) {
  const CapturedLog log;
  const auto thrower = []() -> int { throw std::runtime_error("reason %s"); };
  EXPECT_EQ(tev::support::attempt("f", {"Failed to count"}, -1, thrower), -1);
  EXPECT_EQ(tev::support::attempt("f", {"Failed to count"}, -1, [] { return 5; }), 5);
  EXPECT_FALSE(tev::support::succeeds("g", {"Failed for", "x"}, []() -> bool { throw 1; }));
  EXPECT_TRUE(tev::support::succeeds("g", {"Failed for", "x"}, [] { return true; }));
  EXPECT_EQ(log.lines(), (std::vector<LogLine>{{7, "[f] reason %s"},
                                               {3, "[f] Failed to count"},
                                               {7, "[g] unknown exception"},
                                               {3, "[g] Failed for 'x'"}}));
}

}  // namespace
