#include "tev/logger.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>

#include "src/support/text.h"
#include "tests/support/captured_log.h"
#include "tests/support/environment.h"
#include "tests/support/owned.h"
#include "tests/support/temp_tree.h"
#include "tests/support/threads.h"

namespace {

using namespace tev::test;
using ContextPtr = Owned<tev_logger_ctx_t, tev_destroy_logger_ctx>;

ContextPtr context() {
  return ContextPtr(tev_get_logger_ctx());
}

std::optional<std::string> given(const char* value) {
  return value ? std::optional<std::string>(value) : std::nullopt;
}

constexpr std::string_view kStampForm = "[0000-00-00 00:00:00.000] ";

bool hasForm(std::string_view text, std::string_view form) {
  return std::equal(text.begin(), text.end(), form.begin(), form.end(),
                    [](char c, char f) { return f == '0' ? c >= '0' && c <= '9' : c == f; });
}

// The lines of a log without their time stamps, which are checked for their form.
Texts messages(std::string_view text) {
  EXPECT_TRUE(text.empty() || text.ends_with('\n')) << text;
  Texts found;
  for (std::string_view line : tev::support::split(text, '\n')) {
    if (line.empty()) continue;
    const auto stamp = line.substr(0, kStampForm.size());
    EXPECT_TRUE(hasForm(stamp, kStampForm)) << line;
    found.emplace_back(line.substr(stamp.size()));
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
  const Texts all = {"[error] e", "[warning] w", "[info] i", "[debug] d", "n"};
  const struct {
    const char *prefixed, *bare;
    std::uint32_t threshold;
    Texts printed;
  } rows[] = {
      {nullptr, nullptr, 0, {}},
      {"", nullptr, 0, {}},
      {"loud", nullptr, 0, {}},
      {"3", nullptr, 3, {"[error] e"}},
      {" 4x", nullptr, 4, {"[error] e", "[warning] w"}},
      {nullptr, "5", 5, {"[error] e", "[warning] w", "n"}},
      {"6", "7", 6, {"[error] e", "[warning] w", "[info] i", "n"}},
      {"7", "3", 7, all},
      {"-2", nullptr, 0xFFFFFFFE, all},
      {"-1", nullptr, TEV_LEVEL_UNSET, all},
  };
  for (const auto& row : rows) {
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
TEST_F(LoggerTest, ConflictDuringInitialisationIsPrintedOnce) {
  environment.set("TEV_API_LOG_LEVEL", "-1");
  environment.set("TEV_LOG_THREAD_SAFE", "yes");
  environment.set("LOG_THREAD_SAFE", "no");
  const std::string text = standardError([] { tev_log_enabled(TEV_LEVEL_ERROR); });
  EXPECT_EQ(
      messages(text),
      (Texts{"[warning] [tev_getenv] Environment variables conflict - TEV_LOG_THREAD_SAFE=yes "
             "and LOG_THREAD_SAFE=no. Using TEV_LOG_THREAD_SAFE"}));
}

TEST_F(LoggerTest, ThreadSafetyVariable) {
  const std::pair<const char*, int> rows[] = {{nullptr, 1}, {"", 1},      {"1", 1},  {"true", 1},
                                              {"Type", 1},  {"yes", 1},   {"Y", 1},  {"maybe", 0},
                                              {"0", 0},     {"false", 0}, {" 1", 0}, {"\xFF", 0}};
  const CapturedLog log;
  for (const auto& [value, safe] : rows) {
    SCOPED_TRACE(value ? value : "unset");
    tev_logger_cleanup_mutex_exit_handler();
    environment.set("LOG_THREAD_SAFE", given(value));
    EXPECT_EQ(_tev_init_logger_mutex(), safe);
    EXPECT_EQ(context()->mutex != nullptr, safe == 1);
  }
  const std::string off =
      "[logger] [_tev_init_logger_mutex] Thread safety is disabled by environment variable "
      "TEV_LOG_THREAD_SAFE";
  EXPECT_EQ(log.lines(), linesAt(7, Texts(5, off)));
}

TEST_F(LoggerTest, PrefixedVariableWins) {
  const struct {
    const char *name, *prefixed, *bare, *found;
    bool conflict;
  } rows[] = {
      {"TEV_X", nullptr, nullptr, nullptr, false},
      {"TEV_X", nullptr, "b", "b", false},
      {"TEV_X", "p", "p", "p", false},
      {"TEV_X", "p", "b", "p", true},
      {"TEV_X", "", "b", "", true},
      {"X", "p", nullptr, "p", false},
      {"X", nullptr, "b", "b", false},
      {"X", "p%s", "b%n", "p%s", true},
  };
  for (const auto& row : rows) {
    environment.set("TEV_X", given(row.prefixed));
    environment.set("X", given(row.bare));
    const CapturedLog log;
    EXPECT_STREQ(tev_getenv(row.name), row.found);
    Texts expected;
    if (row.conflict)
      expected = {std::string("[tev_getenv] Environment variables conflict - TEV_X=") +
                  row.prefixed + " and X=" + row.bare + ". Using TEV_X"};
    EXPECT_EQ(log.lines(), linesAt(4, expected));
  }
  environment.set("TEV_API_LOG_LEVEL", "7");
  environment.set("API_LOG_LEVEL", "3");
  const CapturedLog log;
  EXPECT_STREQ(tev_getenv("TEV_API_LOG_LEVEL"), "7");
  EXPECT_EQ(tev_getenv(nullptr), nullptr);
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(LoggerTest, ArgumentsOfASilentLevelAreNotEvaluated) {
  int evaluated = 0;
  const CapturedLog log(TEV_LEVEL_WARNING);
  TEV_LOG_INFO("%d", ++evaluated);
  TEV_LOG_WARNING("%d", ++evaluated);
  EXPECT_EQ(log.lines(), linesAt(4, {"1"}));
  EXPECT_EQ(evaluated, 1);
}

TEST_F(LoggerTest, TimeStampIsTheLocalTimeToTheMillisecond) {
  constexpr long kZoneSeconds = 5 * 3600 + 45 * 60;
  environment.set("TZ", "XYZ-5:45");
  tzset();
  timespec before{}, after{};
  clock_gettime(CLOCK_REALTIME, &before);
  const std::string text = standardError([] { tev_dump_timestamp_logger(stderr); });
  clock_gettime(CLOCK_REALTIME, &after);
  ASSERT_TRUE(hasForm(text, kStampForm)) << text;
  tm local{};
  const char* const rest = strptime(text.c_str(), "[%Y-%m-%d %H:%M:%S.", &local);
  ASSERT_NE(rest, nullptr);
  const auto milliseconds = (timegm(&local) - kZoneSeconds) * 1000 + std::atoi(rest);
  EXPECT_GE(milliseconds, before.tv_sec * 1000 + before.tv_nsec / 1'000'000);
  EXPECT_LE(milliseconds, after.tv_sec * 1000 + after.tv_nsec / 1'000'000);
  environment.set("TZ", std::nullopt);
  tzset();
}

TEST_F(LoggerTest, LinesOfThreadsDoNotMix) {
  constexpr int kThreads = 6;
  constexpr int kLines = 300;
  const std::string path = tree.path("log");
  ASSERT_EQ(tev_init_file_logger(path.c_str(), TEV_LEVEL_INFO), 1);
  const std::string padding(200, 'x');
  onThreads(kThreads, [&](int t) {
    for (int i = 0; i < kLines; ++i) TEV_LOG_INFO("%d %d %s", t, i, padding.c_str());
  });
  tev_close_logger();

  std::vector<int> next(kThreads, 0);
  for (const std::string& line : messages(readAll(path))) {
    int thread = -1, number = -1;
    ASSERT_EQ(std::sscanf(line.c_str(), "[info] %d %d", &thread, &number), 2) << line;
    ASSERT_TRUE(thread >= 0 && thread < kThreads) << line;
    EXPECT_EQ(number, next[static_cast<std::size_t>(thread)]++) << line;
    EXPECT_TRUE(line.ends_with(" " + padding)) << line;
  }
  EXPECT_EQ(next, std::vector<int>(kThreads, kLines));
}

TEST_F(LoggerTest, FirstMessagesOfManyThreadsAllArrive) {
  environment.set("TEV_API_LOG_LEVEL", "6");
  const std::string text = standardError([] { onThreads(8, [](int) { TEV_LOG_INFO("first"); }); });
  EXPECT_EQ(messages(text), Texts(8, "[info] first"));
}

TEST_F(LoggerTest, HexDumpColumns) {
  const std::string full = "41 42 43 44 45 46 47 48  49 4A 4B 4C 4D 4E 4F 50  |  ABCDEFGHIJKLMNOP ";
  const std::string blanks(50, ' ');
  const struct {
    std::string data, hex, characters;  // of the last line
  } rows[] = {
      {"A", "41", "A"},
      {"ABCDEFG", "41 42 43 44 45 46 47", "ABCDEFG"},
      {"ABCDEFGH", "41 42 43 44 45 46 47 48", "ABCDEFGH"},
      {"ABCDEFGHI", "41 42 43 44 45 46 47 48  49", "ABCDEFGHI"},
      {"ABCDEFGHIJKLMNO", "41 42 43 44 45 46 47 48  49 4A 4B 4C 4D 4E 4F", "ABCDEFGHIJKLMNO"},
      {"ABCDEFGHIJKLMNOP", full.substr(0, 50), "ABCDEFGHIJKLMNOP"},
      {"ABCDEFGHIJKLMNOP\x1f ~\x7f", "1F 20 7E 7F", ". ~."},
      {std::string("\0%s\xff", 4), "00 25 73 FF", ".%s."},
  };
  for (const auto& [data, hex, characters] : rows) {
    const CapturedLog log;
    log_hex(data.data(), data.size());
    Texts expected = {hex + blanks.substr(hex.size()) + "|  " + characters + " "};
    if (data.size() > 16) expected.insert(expected.begin(), full);
    EXPECT_EQ(log.lines(), linesAt(7, expected));
  }
  const CapturedLog quiet(TEV_LEVEL_INFO);
  log_hex("A", 1);
  log_hex(nullptr, 1);
  tev_set_log_level(TEV_LEVEL_DEBUG);
  log_hex(nullptr, 1);
  log_hex("A", 0);
  EXPECT_TRUE(quiet.lines().empty());
}

TEST_F(LoggerTest, FileIsTruncatedAndThenAppendedTo) {
  const std::string path = tree.write("log", "old text\n");
  ASSERT_EQ(tev_init_file_logger(path.c_str(), TEV_LEVEL_WARNING), 1);
  EXPECT_EQ(context()->kind, unsigned{TEV_LOGGER_FILE});
  TEV_LOG_ERROR("first %s", "%d");
  TEV_LOG_INFO("silent");
  TEV_LOG_WARNING("second");
  // Each line is there at once, not only when the file is closed.
  EXPECT_EQ(messages(readAll(path)), (Texts{"[error] first %d", "[warning] second"}));
  tev_close_logger();
  EXPECT_EQ(context()->kind, unsigned{TEV_LOGGER_STDERR});
  EXPECT_EQ(tev_log_level, unsigned{TEV_LEVEL_WARNING});
}

TEST_F(LoggerTest, FileThatCannotBeOpenedFallsBackToStandardError) {
  for (const std::string& path : {tree.path("missing/log"), tree.root().string()}) {
    EXPECT_EQ(tev_init_file_logger(path.c_str(), TEV_LEVEL_ERROR), 0);
    EXPECT_EQ(context()->kind, unsigned{TEV_LOGGER_STDERR});
    EXPECT_EQ(context()->stream, stderr);
    EXPECT_NE(standardError([] { TEV_LOG_ERROR("here"); }).find("[error] here\n"),
              std::string::npos);
  }
}

TEST_F(LoggerTest, ClosingKeepsALogFunctionInUse) {
  ASSERT_EQ(tev_init_syslog_logger("tev-test", 0), 1);
  EXPECT_EQ(context()->kind, unsigned{TEV_LOGGER_SYSLOG});
  const CapturedLog log;
  EXPECT_EQ(context()->kind, unsigned{TEV_LOGGER_FUNCTION});
  tev_close_logger();
  EXPECT_EQ(context()->kind, unsigned{TEV_LOGGER_STDERR});
  EXPECT_EQ(standardError([] { TEV_LOG_ERROR("to the function"); }), "");
  EXPECT_EQ(log.lines(), linesAt(3, {"to the function"}));
}

TEST_F(LoggerTest, NullAndTheOwnStateAreNotAdopted) {
  ASSERT_EQ(tev_init_stderr_logger(0), 1);
  EXPECT_EQ(_tev_register_logger(nullptr), 0);
  EXPECT_EQ(_tev_register_logger(context().get()), 1);
  EXPECT_EQ(is_registered, 0);
}

TEST_F(LoggerTest, AdoptsWhatTheKindNeeds) {
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
    EXPECT_EQ(tev_log_level, 3u);
    const ContextPtr now = context();
    EXPECT_EQ(now->kind, kind);
    EXPECT_EQ(now->mutex, &mutex);
    const bool streams = kind == TEV_LOGGER_STDERR || kind == TEV_LOGGER_FILE;
    EXPECT_EQ(now->stream, streams ? stdout : nullptr);
    EXPECT_EQ(now->log_func, kind == TEV_LOGGER_FUNCTION ? ignoreOther : nullptr);
    EXPECT_EQ(tev_get_log_func(), kind == TEV_LOGGER_FUNCTION ? ignoreOther : ignoreMessage);
  }
  // The mutex is the other module's: it is neither destroyed nor forgotten at exit.
  tev_logger_cleanup_mutex_exit_handler();
  EXPECT_EQ(context()->mutex, &mutex);
}

TEST_F(LoggerTest, BackendCannotBeChangedAfterwards) {
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
