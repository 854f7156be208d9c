// The live table on a pseudo-terminal: every way out, a resize, and a device read that hangs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <string>

#include "tests/support/temp_tree.h"

namespace tev::host {
namespace {

using testing::HasSubstr;

constexpr char kEnter[] = "\x1b[?1049h";
constexpr char kLeave[] = "\x1b[?1049l";
constexpr char kCtrlC[] = "\x03";

// tev-host in a terminal of its own.
class TerminalProcess {
 public:
  explicit TerminalProcess(const std::string& words) {
    const winsize size{24, 100, 0, 0};
    pid_ = forkpty(&terminal_, nullptr, nullptr, &size);
    if (pid_ != 0) return;
    const rlimit no_core{0, 0};
    setrlimit(RLIMIT_CORE, &no_core);
    // A sanitizer would turn a fault into an exit code.
    const std::string no_handlers = ":handle_segv=0:handle_sigbus=0:handle_sigfpe=0";
    const std::string command = "unset LINES COLUMNS; export ASAN_OPTIONS=$ASAN_OPTIONS" +
                                no_handlers + " TSAN_OPTIONS=$TSAN_OPTIONS" + no_handlers +
                                "; TERM=xterm exec " TEV_HOST " run --plugin " FAKE_PLUGIN " " +
                                words;
    execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
    _exit(127);
  }
  ~TerminalProcess() {
    if (pid_ > 0) ::kill(pid_, SIGKILL);
    finish();
    close(terminal_);
  }
  TerminalProcess(const TerminalProcess&) = delete;
  TerminalProcess& operator=(const TerminalProcess&) = delete;

  void type(const char* keys) const { EXPECT_EQ(write(terminal_, keys, 1), 1); }
  void kill(int signal) const { ::kill(pid_, signal); }
  void resize(unsigned short rows, unsigned short columns) const {
    const winsize size{rows, columns, 0, 0};
    ioctl(terminal_, TIOCSWINSZ, &size);
  }

  // Reads until the terminal has shown this text, and returns everything since the last call.
  std::string until(const std::string& text) {
    std::string shown;
    while (shown.find(text) == std::string::npos && readSome(shown)) {
    }
    EXPECT_THAT(shown, HasSubstr(text));
    return shown;
  }

  // Reads all. Sets `status` to the exit code or minus the signal.
  std::string finish() {
    std::string shown;
    while (readSome(shown)) {
    }
    int result = 0;
    if (pid_ > 0) waitpid(pid_, &result, 0);
    pid_ = -1;
    status = WIFEXITED(result) ? WEXITSTATUS(result) : -WTERMSIG(result);
    return shown;
  }

  int status = 0;

 private:
  bool readSome(std::string& shown) const {
    constexpr int kPatience = 20'000;  // milliseconds
    pollfd readable{terminal_, POLLIN, 0};
    if (poll(&readable, 1, kPatience) != 1) return false;
    char bytes[4096];
    const ssize_t count = read(terminal_, bytes, sizeof bytes);
    if (count > 0) shown.append(bytes, static_cast<std::size_t>(count));
    return count > 0;
  }

  int terminal_ = -1;
  pid_t pid_ = -1;
};

TEST(Terminal, IsPutBackByEveryWayOut) {
  const struct {
    const char* options;
    const char* keys;  // typed, unless there is a signal
    int signal;
    int status;
  } rows[] = {
      {"", kCtrlC, 0, 0},
      {"", "\x1c", 0, -SIGQUIT},
      {"--option wrong=hang", kCtrlC, 0, -SIGINT},  // three times
      {"", "", SIGTERM, 0},
      {"", "", SIGHUP, 0},
      {"", "", SIGSEGV, -SIGSEGV},
      {"", "", SIGBUS, -SIGBUS},
      {"", "", SIGFPE, -SIGFPE},
      {"", "", SIGUSR1, -SIGUSR1},
      {"--option wrong=abort", "", 0, -SIGABRT},
      {"--option wrong=magic", "", 0, 1},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << row.options << " " << row.signal << " " << -row.status);
    TerminalProcess process(std::string("--update 5 ") + row.options);
    std::string shown = process.until("\x1b[J");
    if (row.status == -SIGINT) process.until("has not answered");
    if (row.signal) process.kill(row.signal);
    for (int i = 0; i < (row.status == -SIGINT ? 3 : 1) && *row.keys; ++i) {
      process.type(row.keys);
      if (row.status == -SIGINT) usleep(20'000);
    }
    shown += process.finish();
    EXPECT_EQ(process.status, row.status);
    const std::size_t leave = shown.rfind(kLeave);
    ASSERT_NE(leave, std::string::npos);
    EXPECT_GT(leave, shown.rfind(kEnter));
    EXPECT_THAT(shown.substr(0, leave), testing::EndsWith("\x1b[0m\x1b[?7h\x1b[?25h"));
  }
}

TEST(Terminal, IsRedrawnAtOnceAfterAResizeAndAStop) {
  TerminalProcess process("--update 3600000");
  process.until("Waiting");
  process.resize(10, 40);
  process.until("Waiting");
  process.type("\x1a");  // the process has no shell: the terminal's stop is ignored
  const std::string shown = process.until("Waiting");
  EXPECT_LT(shown.find(kLeave), shown.find(kEnter));
  process.type(kCtrlC);
  process.finish();
  EXPECT_EQ(process.status, 0);
}

TEST(Terminal, SaysThatAReadHangsAndWhatCtrlCDoes) {
  TerminalProcess process("--update 50 --option wrong=hang");
  process.until("the plug-in has not answered for 2 s");
  process.resize(12, 90);
  process.until("the plug-in has not answered for");
  process.type(kCtrlC);
  process.until("waiting for the plug-in to stop; Ctrl-C ends the program without it");
  process.type(kCtrlC);
  EXPECT_THAT(process.finish(),
              testing::ContainsRegex("alpha +1 .*the plug-in did not answer, and the run ended"));
  EXPECT_EQ(process.status, 1);
}

}  // namespace
}  // namespace tev::host
