#include "tev/logger.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <regex>
#include <sstream>

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
      {"7", "3", 7, all},
      {"-1", {}, TEV_LEVEL_UNSET, all},
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

TEST_F(LoggerTest, ThreadSafetyVariable) {
  for (const auto& [value, safe] : {std::pair{Value(), true},
                                    {"", true},
                                    {"1", true},
                                    {"Type", true},
                                    {"y", true},
                                    {"0", false},
                                    {" 1", false}}) {
    tev_logger_cleanup_mutex_exit_handler();
    environment.set("LOG_THREAD_SAFE", value);
    EXPECT_EQ(_tev_init_logger_mutex(), safe) << value.value_or("unset");
    EXPECT_EQ(context()->mutex != nullptr, safe);
  }
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
  log_hex(nullptr, 1);
  EXPECT_EQ(log.lines(),
            linesAt(7, {"41 42 43 44 45 46 47 48  49 4A 4B 4C 4D 4E 4F 50  |  ABCDEFGHIJKLMNOP ",
                        "00 25 73 1F 20 7E 7F                              |  .%s. ~. "}));
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

TEST_F(LoggerTest, AdoptsWhatTheKindNeeds) {
  ASSERT_EQ(tev_init_stderr_logger(0), 1);
  EXPECT_EQ(_tev_register_logger(nullptr), 0);
  EXPECT_EQ(_tev_register_logger(context().get()), 1);  // its own state: nothing to adopt
  EXPECT_EQ(is_registered, 0);

  // Stays the logger's until the process ends.
  static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  for (const std::uint32_t kind : {TEV_LOGGER_FILE, TEV_LOGGER_FUNCTION}) {
    is_registered = 0;
    ASSERT_EQ(tev_init_stderr_logger(0), 1);
    tev_set_log_func(ignoreMessage, 0);
    const tev_logger_ctx_t theirs = {kind, stdout, ignoreOther, 3, &mutex};
    EXPECT_EQ(_tev_register_logger(&theirs), 1);
    EXPECT_EQ(is_registered, 1);
    const ContextPtr now = context();
    EXPECT_EQ(now->kind, kind);
    EXPECT_EQ(now->level, 3u);
    EXPECT_EQ(now->stream, kind == TEV_LOGGER_FILE ? stdout : nullptr);
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
  EXPECT_EQ(log.texts(7).front(),
            "[logger] [tev_init_stderr_logger] registered logger cannot initialize logger");
  EXPECT_EQ(log.texts(7).back(),
            "[logger] [tev_close_logger] tried closing a registered logger, skipping closure");
}

}  // namespace
