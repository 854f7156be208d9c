#include "tev/logger.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <regex>
#include <sstream>

#include "src/support/clock.h"
#include "tests/support/captured_log.h"
#include "tests/support/environment.h"
#include "tests/support/owned.h"
#include "tests/support/temp_tree.h"
#include "tests/support/threads.h"

namespace {

using namespace tev::test;
using ContextPtr = Owned<tev_logger_ctx_t, tev_destroy_logger_ctx>;

using Value = std::optional<std::string>;  // of a variable that may be unset

ContextPtr context() {
  return ContextPtr(tev_get_logger_ctx());
}

// The lines of a log without their time stamps, which are checked for their form.
Texts messages(const std::string& text) {
  static const std::regex kLine(R"(\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}\] (.*))");
  EXPECT_TRUE(text.empty() || text.ends_with('\n')) << text;
  Texts found;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::smatch match;
    EXPECT_TRUE(std::regex_match(line, match, kLine)) << line;
    found.push_back(match[1]);
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

  // The text that is written to standard error during `body`.
  template <class Body>
  static std::string standardError(Body body) {
    testing::internal::CaptureStderr();
    body();
    return testing::internal::GetCapturedStderr();
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

TEST_F(LoggerTest, LevelVariableDecidesWhatIsPrinted) {
  const Texts all = {"[error] 1", "[warning] 2", "[info] 3", "[debug] 4", "5"};
  const struct {
    Value prefixed, bare;
    std::uint32_t threshold;
    Texts printed;
  } rows[] = {
      {{}, {}, 0, {}},
      {"loud", {}, 0, {}},
      {" 4x", {}, 4, {"[error] 1", "[warning] 2"}},
      {{}, "5", 5, {"[error] 1", "[warning] 2", "3"}},
      {"7", "3", 7, all},
      {"-2", {}, 0xFFFFFFFE, all},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.threshold);
    environment.set("TEV_API_LOG_LEVEL", row.prefixed);
    environment.set("API_LOG_LEVEL", row.bare);
    tev_log_level = TEV_LEVEL_UNSET;
    int evaluated = 0;  // arguments of a silent level are not
    const std::string text = standardError([&] {
      TEV_LOG_ERROR("%d", ++evaluated);
      TEV_LOG_WARNING("%d", ++evaluated);
      TEV_LOG_INFO("%d", ++evaluated);
      TEV_LOG_DEBUG("%d", ++evaluated);
      TEV_LOG(5, "%d", ++evaluated);
    });
    EXPECT_EQ(tev_log_level, row.threshold);
    EXPECT_EQ(messages(text), row.printed);
  }
}

// With the threshold -1 the logger always counts as unset. Messages of its initialisation must not
// initialise it again.
TEST_F(LoggerTest, ConflictDuringInitialisationIsPrintedOnce) {
  environment.set("TEV_API_LOG_LEVEL", "-1");
  environment.set("TEV_LOG_THREAD_SAFE", "yes");
  environment.set("LOG_THREAD_SAFE", "no");
  EXPECT_EQ(messages(standardError([] { tev_log_enabled(TEV_LEVEL_ERROR); })).size(), 1u);
}

TEST_F(LoggerTest, ThreadSafetyVariable) {
  const CapturedLog log;
  const auto is_safe = [&](const Value& value) {
    tev_logger_cleanup_mutex_exit_handler();
    environment.set("LOG_THREAD_SAFE", value);
    const bool safe = _tev_init_logger_mutex();
    EXPECT_EQ(context()->mutex != nullptr, safe);
    return safe;
  };
  for (const Value& value : {Value(), Value(""), Value("1"), Value("Type"), Value("y")})
    EXPECT_TRUE(is_safe(value)) << value.value_or("unset");
  for (const char* value : {"0", " 1", "\xFF"}) EXPECT_FALSE(is_safe(value)) << value;
  const std::string off =
      "[logger] [_tev_init_logger_mutex] Thread safety is disabled by environment variable "
      "TEV_LOG_THREAD_SAFE";
  EXPECT_EQ(log.lines(), linesAt(7, Texts(3, off)));
}

TEST_F(LoggerTest, PrefixedVariableWins) {
  const CapturedLog log;
  EXPECT_EQ(tev_getenv("TEV_X"), nullptr);
  environment.set("X", "b%n");
  EXPECT_STREQ(tev_getenv("TEV_X"), "b%n");
  environment.set("TEV_X", "b%n");
  EXPECT_STREQ(tev_getenv("X"), "b%n");
  EXPECT_EQ(log.lines(), LogLines{});
  environment.set("TEV_X", "");
  EXPECT_STREQ(tev_getenv("X"), "");
  EXPECT_EQ(log.lines(), linesAt(4, {"[tev_getenv] Environment variables conflict - TEV_X= and "
                                     "X=b%n. Using TEV_X"}));
  const std::string long_name(1000, 'X');
  environment.set("TEV_" + long_name, "found");
  EXPECT_STREQ(tev_getenv(long_name.c_str()), "found");
}

TEST_F(LoggerTest, TimeStampIsTheLocalTimeToTheMillisecond) {
  environment.set("TZ", "XYZ-5:45");
  tzset();
  const std::uint64_t before = tev::support::realtimeUsec() / 1'000;
  const std::string text = standardError([] { tev_dump_timestamp_logger(stderr); });
  const std::uint64_t after = tev::support::realtimeUsec() / 1'000;
  tm local{};
  const char* const rest = strptime(text.c_str(), "[%Y-%m-%d %H:%M:%S.", &local);
  ASSERT_NE(rest, nullptr) << text;
  const auto seconds = static_cast<std::uint64_t>(timegm(&local) - (5 * 3600 + 45 * 60));
  const std::uint64_t stamp = seconds * 1'000 + std::strtoul(rest, nullptr, 10);
  EXPECT_TRUE(before <= stamp && stamp <= after) << text;
  environment.set("TZ", std::nullopt);
  tzset();
  tev_dump_timestamp_logger(nullptr);
}

// The first messages initialise the logger, on several threads at the same time.
TEST_F(LoggerTest, LinesOfThreadsAllArriveAndDoNotMix) {
  constexpr int kThreads = 6;
  constexpr int kLines = 300;
  environment.set("TEV_API_LOG_LEVEL", "6");
  const auto line = [](int thread, int number) {
    return std::to_string(thread) + "." + std::to_string(1000 + number) + std::string(200, 'x');
  };
  Texts found = messages(standardError([&] {
    onThreads(kThreads, [&](int t) {
      for (int i = 0; i < kLines; ++i) TEV_LOG_INFO("%s", line(t, i).c_str());
    });
  }));
  std::sort(found.begin(), found.end());
  Texts expected;
  for (int t = 0; t < kThreads; ++t)
    for (int i = 0; i < kLines; ++i) expected.push_back("[info] " + line(t, i));
  EXPECT_EQ(found, expected);
}

// The thread that writes a line at the moment of a fork() does not exist in the child.
TEST_F(LoggerTest, AChildOfForkCanLog) {
  tev_init_stderr_logger(TEV_LEVEL_ERROR);
  const auto ctx = context();
  pthread_mutex_lock(ctx->mutex);
  const pid_t child = fork();
  if (child == 0) {
    alarm(60);
    TEV_LOG_ERROR("in the child");
    _exit(0);
  }
  pthread_mutex_unlock(ctx->mutex);
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
}

TEST_F(LoggerTest, HexDumpColumns) {
  const CapturedLog log;
  log_hex("ABCDEFGHIJKLMNOP\0%s\x1f ~\x7f", 23);
  log_hex("ABCDEFGH", 8);
  log_hex("ABCDEFGHIJKLMNO", 15);
  log_hex(nullptr, 1);
  EXPECT_EQ(log.lines(),
            linesAt(7, {"41 42 43 44 45 46 47 48  49 4A 4B 4C 4D 4E 4F 50  |  ABCDEFGHIJKLMNOP ",
                        "00 25 73 1F 20 7E 7F                              |  .%s. ~. ",
                        "41 42 43 44 45 46 47 48                           |  ABCDEFGH ",
                        "41 42 43 44 45 46 47 48  49 4A 4B 4C 4D 4E 4F     |  ABCDEFGHIJKLMNO "}));
}

TEST_F(LoggerTest, FileIsTruncatedAndWrittenAtOnce) {
  const std::string path = tree.write("log", "old text\n");
  ASSERT_EQ(tev_init_file_logger(path.c_str(), TEV_LEVEL_WARNING), 1);
  TEV_LOG_ERROR("first %s", "%d");
  TEV_LOG_WARNING("second");
  EXPECT_EQ(messages(readAll(path)), (Texts{"[error] first %d", "[warning] second"}));

  EXPECT_EQ(tev_init_file_logger(tree.path("missing/log").c_str(), TEV_LEVEL_ERROR), 0);
  EXPECT_EQ(messages(standardError([] { TEV_LOG_ERROR("here"); })), Texts{"[error] here"});
}

TEST_F(LoggerTest, ClosingKeepsALogFunctionInUse) {
  const CapturedLog log;
  ASSERT_EQ(tev_init_syslog_logger("tev-test", TEV_LEVEL_ERROR), 1);
  EXPECT_EQ(context()->kind, unsigned{TEV_LOGGER_SYSLOG});
  tev_close_logger();
  EXPECT_EQ(context()->kind, unsigned{TEV_LOGGER_STDERR});
  EXPECT_EQ(standardError([] { TEV_LOG_ERROR("to the function"); }), "");
  EXPECT_EQ(log.lines(), linesAt(3, {"to the function"}));
}

TEST_F(LoggerTest, AdoptsWhatTheKindNeeds) {
  ASSERT_EQ(tev_init_stderr_logger(0), 1);
  EXPECT_EQ(_tev_register_logger(nullptr), 0);
  EXPECT_EQ(_tev_register_logger(context().get()), 1);  // its own state: nothing to adopt
  EXPECT_EQ(is_registered, 0);

  // Stays the logger's until the process ends.
  static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  for (const std::uint32_t kind :
       {TEV_LOGGER_STDERR, TEV_LOGGER_SYSLOG, TEV_LOGGER_FILE, TEV_LOGGER_FUNCTION}) {
    is_registered = 0;
    ASSERT_EQ(tev_init_stderr_logger(0), 1);
    tev_set_log_func(ignoreMessage, 0);
    const tev_logger_ctx_t theirs = {kind, stdout, ignoreOther, 3, &mutex};
    EXPECT_EQ(_tev_register_logger(&theirs), 1);
    EXPECT_EQ(is_registered, 1);
    const ContextPtr now = context();
    EXPECT_EQ(now->kind, kind);
    EXPECT_EQ(now->level, 3u);
    const bool streams = kind == TEV_LOGGER_STDERR || kind == TEV_LOGGER_FILE;
    EXPECT_EQ(now->stream, streams ? stdout : nullptr);
    EXPECT_EQ(tev_get_log_func(), kind == TEV_LOGGER_FUNCTION ? ignoreOther : ignoreMessage);
  }
  // The mutex is the other module's: it is neither destroyed nor forgotten at exit.
  tev_logger_cleanup_mutex_exit_handler();
  EXPECT_EQ(context()->mutex, &mutex);
}

TEST_F(LoggerTest, BackendCannotBeChangedAfterwards) {
  const CapturedLog log;
  const ContextPtr theirs = context();
  theirs->level = TEV_LEVEL_DEBUG + 1;
  ASSERT_EQ(_tev_register_logger(theirs.get()), 1);
  EXPECT_EQ(tev_init_stderr_logger(0), 0);
  EXPECT_EQ(tev_init_syslog_logger("tev-test", 0), 0);
  EXPECT_EQ(tev_init_file_logger(tree.path("log").c_str(), 0), 0);
  tev_close_logger();
  EXPECT_EQ(context()->kind, unsigned{TEV_LOGGER_FUNCTION});
  const std::string refusal = " registered logger cannot initialize logger";
  EXPECT_EQ(
      log.lines(),
      linesAt(7,
              {"[logger] [tev_init_stderr_logger]" + refusal,
               "[logger] [tev_init_syslog_logger]" + refusal,
               "[logger] [tev_init_file_logger]" + refusal,
               "[logger] [tev_close_logger] tried closing a registered logger, skipping closure"}));
}

}  // namespace
