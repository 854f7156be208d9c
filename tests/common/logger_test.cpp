#include "tev/logger.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "src/support/text.h"
#include "tests/support/captured_log.h"
#include "tests/support/environment.h"
#include "tests/support/temp_tree.h"

namespace {

using tev::test::CapturedLog;
using tev::test::Environment;
using tev::test::LogLine;
using tev::test::TempTree;

struct DestroyContext {
  void operator()(tev_logger_ctx_t* ctx) const { tev_destroy_logger_ctx(ctx); }
};
using ContextPtr = std::unique_ptr<tev_logger_ctx_t, DestroyContext>;

ContextPtr context() {
  return ContextPtr(tev_get_logger_ctx());
}

constexpr std::string_view kStampForm = "[0000-00-00 00:00:00.000] ";

bool hasForm(std::string_view text, std::string_view form) {
  return std::equal(text.begin(), text.end(), form.begin(), form.end(),
                    [](char c, char f) { return f == '0' ? c >= '0' && c <= '9' : c == f; });
}

// The lines of a log without their time stamps, which are checked for their form.
std::vector<std::string> messages(std::string_view text) {
  EXPECT_TRUE(text.empty() || text.ends_with('\n')) << text;
  std::vector<std::string> found;
  for (std::string_view line : tev::support::split(text, '\n')) {
    if (line.empty()) continue;
    EXPECT_TRUE(hasForm(line.substr(0, kStampForm.size()), kStampForm)) << line;
    found.emplace_back(line.substr(std::min(line.size(), kStampForm.size())));
  }
  return found;
}

void ignoreMessage(std::uint32_t, const char*, ...) {}
void ignoreOther(std::uint32_t, const char*, ...) {}

// Every test starts with a logger that has never been used, and without its variables.
class LoggerTest : public testing::Test {
 protected:
  LoggerTest() {
    environment.unset({"TEV_API_LOG_LEVEL", "TEV_LOG_THREAD_SAFE"});
    startAnew();
  }
  ~LoggerTest() override { startAnew(); }

  // Whatever is written to standard error during `body`.
  template <class Body>
  static std::string standardError(Body body) {
    testing::internal::CaptureStderr();
    body();
    return testing::internal::GetCapturedStderr();
  }

  static std::string textOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  Environment environment;
  TempTree tree;

 private:
  static void startAnew() {
    is_registered = 0;
    tev_logger_cleanup_mutex_exit_handler();
    tev_logger_ctx_t unused{};
    unused.level = TEV_LEVEL_UNSET;
    tev_set_log_func(nullptr, TEV_LEVEL_UNSET);
    _tev_register_logger(&unused);
    is_registered = 0;
  }
};

using LoggerEnvironment = LoggerTest;
using LoggerRegistration = LoggerTest;
using LoggerLines = LoggerTest;
using LoggerBackend = LoggerTest;

TEST_F(LoggerEnvironment, LevelVariableDecidesWhatIsPrinted) {
  struct Row {
    const char* prefixed;
    const char* bare;
    std::uint32_t threshold;
    std::vector<std::string> printed;
  };
  const std::vector<std::string> all = {"[error] e", "[warning] w", "[info] i", "[debug] d", "n"};
  const Row rows[] = {
      {nullptr, nullptr, 0, {}},
      {"", nullptr, 0, {}},
      {"loud", nullptr, 0, {}},
      {"0", nullptr, 0, {}},
      {"3", nullptr, 3, {"[error] e"}},
      {" 4x", nullptr, 4, {"[error] e", "[warning] w"}},
      {nullptr, "5", 5, {"[error] e", "[warning] w", "n"}},
      {"6", "7", 6, {"[error] e", "[warning] w", "[info] i", "n"}},
      {"7", "3", 7, all},
      {"-2", nullptr, 0xFFFFFFFE, all},
      {"-1", nullptr, TEV_LEVEL_UNSET, all},
  };
  const auto given = [](const char* value) {
    return value ? std::optional<std::string>(value) : std::nullopt;
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.prefixed ? row.prefixed : "unset");
    environment.set("TEV_API_LOG_LEVEL", given(row.prefixed));
    environment.set("API_LOG_LEVEL", given(row.bare));
    tev_log_level = TEV_LEVEL_UNSET;
    const std::string text = standardError([] {
      TEV_LOG_ERROR("e");
      TEV_LOG_WARNING("w");
      TEV_LOG_INFO("i");
      TEV_LOG_DEBUG("d");
      TEV_LOG(5, "n");
    });
    EXPECT_EQ(tev_log_level, row.threshold);
    EXPECT_EQ(messages(text), row.printed);
  }
}

// With the threshold -1 the logger counts as unset for ever: what its initialisation has to say
// must not initialise it again.
TEST_F(LoggerEnvironment, ConflictDuringInitialisationIsPrintedOnce) {
  environment.set("TEV_API_LOG_LEVEL", "-1");
  environment.set("TEV_LOG_THREAD_SAFE", "yes");
  environment.set("LOG_THREAD_SAFE", "no");
  const std::string text = standardError([] { tev_log_enabled(TEV_LEVEL_ERROR); });
  EXPECT_EQ(messages(text),
            (std::vector<std::string>{
                "[warning] [tev_getenv] Environment variables conflict - TEV_LOG_THREAD_SAFE=yes "
                "and LOG_THREAD_SAFE=no. Using TEV_LOG_THREAD_SAFE"}));
}

TEST_F(LoggerEnvironment, ThreadSafetyVariable) {
  struct Row {
    const char* value;
    int safe;
  };
  const Row rows[] = {{nullptr, 1}, {"", 1},      {"1", 1}, {"true", 1},  {"Type", 1}, {"yes", 1},
                      {"Y", 1},     {"maybe", 0}, {"0", 0}, {"false", 0}, {" 1", 0},   {"\xFF", 0}};
  const CapturedLog log;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.value ? row.value : "unset");
    tev_logger_cleanup_mutex_exit_handler();
    environment.set("LOG_THREAD_SAFE",
                    row.value ? std::optional<std::string>(row.value) : std::nullopt);
    EXPECT_EQ(_tev_init_logger_mutex(), row.safe);
    EXPECT_EQ(context()->mutex != nullptr, row.safe == 1);
  }
  EXPECT_EQ(log.count(7,
                      "[logger] [_tev_init_logger_mutex] Thread safety is disabled by environment "
                      "variable TEV_LOG_THREAD_SAFE"),
            5u);
}

TEST_F(LoggerEnvironment, PrefixedVariableWins) {
  struct Row {
    const char* name;
    std::optional<std::string> prefixed, bare;
    std::optional<std::string> found;
    bool conflict;
  };
  const Row rows[] = {
      {"TEV_X", {}, {}, {}, false},   {"TEV_X", "p", {}, "p", false},
      {"TEV_X", {}, "b", "b", false}, {"TEV_X", "p", "p", "p", false},
      {"TEV_X", "p", "b", "p", true}, {"TEV_X", "", "b", "", true},
      {"X", {}, {}, {}, false},       {"X", "p", {}, "p", false},
      {"X", {}, "b", "b", false},     {"X", "p%s", "b%n", "p%s", true},
  };
  for (const Row& row : rows) {
    environment.set("TEV_X", row.prefixed);
    environment.set("X", row.bare);
    const CapturedLog log;
    const char* const found = tev_getenv(row.name);
    EXPECT_EQ(found ? std::optional<std::string>(found) : std::nullopt, row.found);
    std::vector<LogLine> expected;
    if (row.conflict)
      expected.push_back({4, "[tev_getenv] Environment variables conflict - TEV_X=" +
                                 *row.prefixed + " and X=" + *row.bare + ". Using TEV_X"});
    EXPECT_EQ(log.lines(), expected);
  }
  const CapturedLog log;
  environment.set("TEV_API_LOG_LEVEL", "7");
  environment.set("API_LOG_LEVEL", "3");
  EXPECT_STREQ(tev_getenv("TEV_API_LOG_LEVEL"), "7");
  EXPECT_TRUE(log.lines().empty());
  EXPECT_EQ(tev_getenv(nullptr), nullptr);
}

TEST_F(LoggerLines, ArgumentsOfASilentLevelAreNotEvaluated) {
  int evaluated = 0;
  {
    const CapturedLog log(TEV_LEVEL_WARNING);
    TEV_LOG_INFO("%d", ++evaluated);
    EXPECT_EQ(evaluated, 0);
    TEV_LOG_WARNING("%d", ++evaluated);
    EXPECT_EQ(log.lines(), (std::vector<LogLine>{{4, "1"}}));
  }
  EXPECT_EQ(evaluated, 1);
}

TEST_F(LoggerLines, TimeStampIsTheLocalTimeToTheMillisecond) {
  constexpr long kZoneSeconds = 5 * 3600 + 45 * 60;
  environment.set("TZ", "XYZ-5:45");
  tzset();
  timespec before{};
  timespec after{};
  clock_gettime(CLOCK_REALTIME, &before);
  std::FILE* const file = std::fopen(tree.path("stamp").c_str(), "w");
  ASSERT_NE(file, nullptr);
  tev_dump_timestamp_logger(file);
  std::fclose(file);
  clock_gettime(CLOCK_REALTIME, &after);

  const std::string text = textOf(tree.path("stamp"));
  ASSERT_TRUE(hasForm(text, kStampForm)) << text;
  const auto number = [&](std::size_t at, std::size_t digits) {
    return std::stoi(text.substr(at, digits));
  };
  tm local{};
  local.tm_year = number(1, 4) - 1900;
  local.tm_mon = number(6, 2) - 1;
  local.tm_mday = number(9, 2);
  local.tm_hour = number(12, 2);
  local.tm_min = number(15, 2);
  local.tm_sec = number(18, 2);
  const auto milliseconds = (timegm(&local) - kZoneSeconds) * 1000 + number(21, 3);
  EXPECT_GE(milliseconds, before.tv_sec * 1000 + before.tv_nsec / 1'000'000);
  EXPECT_LE(milliseconds, after.tv_sec * 1000 + after.tv_nsec / 1'000'000);
  environment.set("TZ", std::nullopt);
  tzset();
}

TEST_F(LoggerLines, LinesOfThreadsDoNotMix) {
  constexpr int kThreads = 6;
  constexpr int kLines = 300;
  const std::string path = tree.path("log");
  ASSERT_EQ(tev_init_file_logger(path.c_str(), TEV_LEVEL_INFO), 1);
  const std::string padding(200, 'x');
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([t, &padding] {
      for (int i = 0; i < kLines; ++i) TEV_LOG_INFO("%d %d %s", t, i, padding.c_str());
    });
  for (auto& thread : threads) thread.join();
  tev_close_logger();

  std::vector<int> next(kThreads, 0);
  for (const std::string& line : messages(textOf(path))) {
    int thread = -1;
    int number = -1;
    ASSERT_EQ(std::sscanf(line.c_str(), "[info] %d %d", &thread, &number), 2) << line;
    ASSERT_TRUE(thread >= 0 && thread < kThreads) << line;
    EXPECT_EQ(number, next[static_cast<std::size_t>(thread)]++) << line;
    EXPECT_TRUE(line.ends_with(" " + padding)) << line;
  }
  EXPECT_EQ(next, std::vector<int>(kThreads, kLines));
}

TEST_F(LoggerLines, FirstMessagesOfManyThreadsAllArrive) {
  environment.set("TEV_API_LOG_LEVEL", "6");
  const std::string text = standardError([] {
    std::vector<std::thread> threads;
    threads.reserve(8);
    for (int t = 0; t < 8; ++t) threads.emplace_back([] { TEV_LOG_INFO("first"); });
    for (auto& thread : threads) thread.join();
  });
  EXPECT_EQ(messages(text), std::vector<std::string>(8, "[info] first"));
}

TEST_F(LoggerLines, HexDumpColumns) {
  const auto padded = [](std::string hex) { return hex.append(50 - hex.size(), ' '); };
  struct Row {
    std::string data;
    std::vector<std::string> lines;
  };
  const std::string full = "41 42 43 44 45 46 47 48  49 4A 4B 4C 4D 4E 4F 50  ";
  const Row rows[] = {
      {"", {}},
      {"A", {padded("41") + "|  A "}},
      {"ABCDEFG", {padded("41 42 43 44 45 46 47") + "|  ABCDEFG "}},
      {"ABCDEFGH", {padded("41 42 43 44 45 46 47 48") + "|  ABCDEFGH "}},
      {"ABCDEFGHI", {padded("41 42 43 44 45 46 47 48  49") + "|  ABCDEFGHI "}},
      {"ABCDEFGHIJKLMNO",
       {padded("41 42 43 44 45 46 47 48  49 4A 4B 4C 4D 4E 4F") + "|  ABCDEFGHIJKLMNO "}},
      {"ABCDEFGHIJKLMNOP", {full + "|  ABCDEFGHIJKLMNOP "}},
      {"ABCDEFGHIJKLMNOP\x1f ~\x7f",
       {full + "|  ABCDEFGHIJKLMNOP ", padded("1F 20 7E 7F") + "|  . ~. "}},
      {std::string("\0%s\xff", 4), {padded("00 25 73 FF") + "|  .%s. "}},
  };
  for (const Row& row : rows) {
    const CapturedLog log;
    log_hex(row.data.data(), row.data.size());
    EXPECT_EQ(log.texts(TEV_LEVEL_DEBUG), row.lines);
  }
  const CapturedLog quiet(TEV_LEVEL_INFO);
  log_hex("A", 1);
  log_hex(nullptr, 1);
  EXPECT_TRUE(quiet.lines().empty());
}

TEST_F(LoggerBackend, FileIsTruncatedAndThenAppendedTo) {
  const std::string path = tree.write("log", "old text\n");
  ASSERT_EQ(tev_init_file_logger(path.c_str(), TEV_LEVEL_WARNING), 1);
  EXPECT_EQ(context()->kind, unsigned{TEV_LOGGER_FILE});
  TEV_LOG_ERROR("first %s", "%d");
  TEV_LOG_INFO("silent");
  TEV_LOG_WARNING("second");
  // Each line is there at once, not only when the file is closed.
  EXPECT_EQ(messages(textOf(path)),
            (std::vector<std::string>{"[error] first %d", "[warning] second"}));
  tev_close_logger();
  EXPECT_EQ(context()->kind, unsigned{TEV_LOGGER_STDERR});
  EXPECT_EQ(tev_log_level, unsigned{TEV_LEVEL_WARNING});
}

TEST_F(LoggerBackend, FileThatCannotBeOpenedFallsBackToStandardError) {
  for (const std::string& path : {tree.path("missing/log"), tree.root().string()}) {
    EXPECT_EQ(tev_init_file_logger(path.c_str(), TEV_LEVEL_ERROR), 0);
    EXPECT_EQ(context()->kind, unsigned{TEV_LOGGER_STDERR});
    EXPECT_EQ(context()->stream, stderr);
    EXPECT_NE(standardError([] { TEV_LOG_ERROR("here"); }).find("[error] here\n"),
              std::string::npos);
  }
}

TEST_F(LoggerBackend, ContextCarriesWhatItsKindNeeds) {
  ASSERT_EQ(tev_init_stderr_logger(4), 1);
  EXPECT_EQ(context()->stream, stderr);
  EXPECT_EQ(context()->level, 4u);
  EXPECT_NE(context()->mutex, nullptr);

  tev_set_log_func(ignoreMessage, 5);
  EXPECT_EQ(context()->kind, unsigned{TEV_LOGGER_FUNCTION});
  EXPECT_EQ(context()->log_func, ignoreMessage);
  EXPECT_EQ(context()->stream, nullptr);

  ASSERT_EQ(tev_init_syslog_logger("tev-test", 0), 1);
  EXPECT_EQ(context()->kind, unsigned{TEV_LOGGER_SYSLOG});
  EXPECT_EQ(context()->log_func, nullptr);
  EXPECT_EQ(context()->stream, nullptr);
  EXPECT_EQ(tev_set_log_level(3), 0u);
  tev_close_logger();
}

TEST_F(LoggerBackend, ClosingKeepsALogFunctionInUse) {
  const CapturedLog log;
  tev_close_logger();
  EXPECT_EQ(context()->kind, unsigned{TEV_LOGGER_STDERR});
  EXPECT_EQ(standardError([] { TEV_LOG_ERROR("to the function"); }), "");
  EXPECT_TRUE(log.contains(3, "to the function"));
}

TEST_F(LoggerRegistration, NullAndTheOwnStateChangeNothing) {
  ASSERT_EQ(tev_init_stderr_logger(0), 1);
  EXPECT_EQ(_tev_register_logger(nullptr), 0);
  EXPECT_EQ(_tev_register_logger(context().get()), 1);
  EXPECT_EQ(is_registered, 0);
  EXPECT_EQ(tev_init_stderr_logger(4), 1);
}

TEST_F(LoggerRegistration, AdoptsWhatTheKindNeeds) {
  // Stays the logger's until the process ends.
  static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  struct Row {
    std::uint32_t kind;
    bool takes_stream, takes_function;
  };
  for (const Row& row : {Row{TEV_LOGGER_STDERR, true, false},
                         {TEV_LOGGER_SYSLOG, false, false},
                         {TEV_LOGGER_FILE, true, false},
                         {TEV_LOGGER_FUNCTION, false, true}}) {
    is_registered = 0;
    ASSERT_EQ(tev_init_stderr_logger(0), 1);
    tev_set_log_func(ignoreMessage, 0);
    const tev_logger_ctx_t theirs = {row.kind, stdout, ignoreOther, 3, &mutex};
    EXPECT_EQ(_tev_register_logger(&theirs), 1);
    EXPECT_EQ(is_registered, 1);
    EXPECT_EQ(tev_log_level, 3u);
    const ContextPtr now = context();
    EXPECT_EQ(now->kind, row.kind);
    EXPECT_EQ(now->mutex, &mutex);
    EXPECT_EQ(tev_get_log_func(), row.takes_function ? ignoreOther : ignoreMessage);
    if (row.takes_stream) {
      EXPECT_EQ(now->stream, stdout);
    }
  }
  // The mutex is the other module's: it is neither destroyed nor forgotten at exit.
  tev_logger_cleanup_mutex_exit_handler();
  EXPECT_EQ(context()->mutex, &mutex);
}

TEST_F(LoggerRegistration, BackendCannotBeChangedAfterwards) {
  const CapturedLog log;
  ContextPtr theirs = context();
  theirs->level = TEV_LEVEL_DEBUG + 1;
  ASSERT_EQ(_tev_register_logger(theirs.get()), 1);
  ASSERT_EQ(is_registered, 1);

  EXPECT_EQ(tev_init_stderr_logger(0), 0);
  EXPECT_EQ(tev_init_syslog_logger("tev-test", 0), 0);
  EXPECT_EQ(tev_init_file_logger(tree.path("log").c_str(), 0), 0);
  tev_close_logger();
  EXPECT_FALSE(std::filesystem::exists(tree.path("log")));
  EXPECT_EQ(context()->kind, unsigned{TEV_LOGGER_FUNCTION});
  EXPECT_EQ(tev_log_level, unsigned{TEV_LEVEL_DEBUG} + 1);
  EXPECT_EQ(log.lines(),
            (std::vector<LogLine>{
                {7, "[logger] [tev_init_stderr_logger] registered logger cannot initialize logger"},
                {7, "[logger] [tev_init_syslog_logger] registered logger cannot initialize logger"},
                {7, "[logger] [tev_init_file_logger] registered logger cannot initialize logger"},
                {7,
                 "[logger] [tev_close_logger] tried closing a registered logger, skipping "
                 "closure"}}));
}

}  // namespace
