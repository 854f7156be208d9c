// tev-host in a terminal of its own.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <string>
#include <utility>

namespace tev::test {

inline constexpr char kEnter[] = "\x1b[?1049h";
inline constexpr char kLeave[] = "\x1b[?1049l";
inline constexpr char kCtrlC[] = "\x03";

class TerminalProcess {
 public:
  explicit TerminalProcess(const std::string& words) {
    const winsize size{24, 100, 0, 0};
    pid_ = forkpty(&terminal_, nullptr, nullptr, &size);
    if (pid_ != 0) {
      first_modes_ = modes();
      return;
    }
    const rlimit no_core{0, 0};
    setrlimit(RLIMIT_CORE, &no_core);
    // A sanitizer would turn a fault into an exit code.
    const std::string no_handlers = ":handle_segv=0:handle_sigbus=0:handle_sigfpe=0";
    const std::string command = "unset LINES COLUMNS; export ASAN_OPTIONS=$ASAN_OPTIONS" +
                                no_handlers + " TSAN_OPTIONS=$TSAN_OPTIONS" + no_handlers +
                                "; TERM=xterm exec " TEV_HOST " " + words;
    execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
    _exit(127);
  }
  ~TerminalProcess() {
    if (pid_ <= 0 && terminal_ < 0) return;
    if (pid_ > 0) ::kill(pid_, SIGKILL);
    finish();
    close(terminal_);
  }
  TerminalProcess(const TerminalProcess&) = delete;
  TerminalProcess& operator=(const TerminalProcess&) = delete;

  void type(const std::string& keys) const {
    EXPECT_EQ(write(terminal_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
  }
  void kill(int signal) const { ::kill(pid_, signal); }
  void resize(unsigned short rows, unsigned short columns) const {
    const winsize size{rows, columns, 0, 0};
    ioctl(terminal_, TIOCSWINSZ, &size);
  }

  // Reads until the terminal has shown this text, and returns everything since the last call.
  std::string until(const std::string& text) {
    std::string shown;
    const Deadline deadline = std::chrono::steady_clock::now() + kPatience;
    while (shown.find(text) == std::string::npos && readSome(shown, deadline)) {
    }
    EXPECT_THAT(shown, testing::HasSubstr(text));
    return shown;
  }

  // The window is closed. Waits for the end of the process.
  void hangUp() {
    close(std::exchange(terminal_, -1));
    waitpid(std::exchange(pid_, -1), nullptr, 0);
  }

  // Reads all. Sets `status` to the exit code or minus the signal.
  std::string finish() {
    std::string shown;
    const Deadline deadline = std::chrono::steady_clock::now() + kPatience;
    while (readSome(shown, deadline)) {
    }
    int result = 0;
    if (pid_ > 0) waitpid(pid_, &result, 0);
    pid_ = -1;
    status = WIFEXITED(result) ? WEXITSTATUS(result) : -WTERMSIG(result);
    return shown;
  }

  // Whether lines are edited and echoed as before.
  bool hasFirstModes() const { return modes() == first_modes_; }

  int status = 0;

 private:
  using Deadline = std::chrono::steady_clock::time_point;
  static constexpr std::chrono::seconds kPatience{20};

  tcflag_t modes() const {
    termios all{};
    tcgetattr(terminal_, &all);
    return all.c_lflag;
  }

  bool readSome(std::string& shown, Deadline deadline) const {
    pollfd readable{terminal_, POLLIN, 0};
    const auto left = deadline - std::chrono::steady_clock::now();
    const auto patience = std::chrono::duration_cast<std::chrono::milliseconds>(left).count();
    if (patience <= 0 || poll(&readable, 1, static_cast<int>(patience)) != 1) return false;
    char bytes[4096];
    const ssize_t count = read(terminal_, bytes, sizeof bytes);
    if (count > 0) shown.append(bytes, static_cast<std::size_t>(count));
    return count > 0;
  }

  int terminal_ = -1;
  pid_t pid_ = -1;
  tcflag_t first_modes_ = 0;
};

}  // namespace tev::test
