#include "host/support/terminal_guard.h"

#include <signal.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <utility>

#include "host/support/bounded_write.h"
#include "host/support/stop_signal.h"

namespace tev::host {
namespace {

constexpr std::chrono::milliseconds kPatience{200};
constexpr std::size_t kAlternateStack = std::size_t{1} << 16;

// Signals that end a process by default. StopSignal handles SIGINT, SIGTERM and SIGHUP.
constexpr int kFatal[] = {SIGSEGV,   SIGBUS,  SIGFPE,  SIGILL,  SIGSYS,   SIGTRAP,
                          SIGABRT,   SIGQUIT, SIGALRM, SIGUSR1, SIGUSR2,  SIGXCPU,
                          SIGVTALRM, SIGPROF, SIGPOLL, SIGPWR,  SIGSTKFLT};
constexpr int kSuspending[] = {SIGTSTP, SIGCONT, SIGWINCH};

// All of this is static, because the signal handlers use it. The constructor writes it before it
// installs the handlers.
TerminalGuard::Screen screen{};
bool has_modes = false;
termios modes_before{};
termios modes_inside{};
std::atomic<bool> wanted{false};   // from enter() to leave()
std::atomic<bool> entered{false};  // the terminal shows the screen
std::atomic<bool> redraw{false};
static_assert(std::atomic<bool>::is_always_lock_free);

struct Replaced {
  bool is_ours = false;
  struct sigaction before {};
};
std::array<Replaced, NSIG> replaced;

// A background process that changes the modes, or writes, would be stopped by this signal.
class OutputSignalBlocked {
 public:
  OutputSignalBlocked() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTTOU);
    pthread_sigmask(SIG_BLOCK, &set, &before_);
  }
  ~OutputSignalBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  OutputSignalBlocked(const OutputSignalBlocked&) = delete;
  OutputSignalBlocked& operator=(const OutputSignalBlocked&) = delete;

 private:
  sigset_t before_{};
};

std::size_t length(const char* text) {
  std::size_t count = 0;
  while (text[count] != '\0') ++count;
  return count;
}

// All functions from here to onResize() are async-signal-safe.

void send(const char* text) {
  writeAll(screen.output, {text, length(text)}, kPatience);
}

void show() {
  if (!wanted || !TerminalGuard::isInForeground() || entered.exchange(true)) return;
  if (has_modes) tcsetattr(screen.input, TCSANOW, &modes_inside);
  send(screen.enter);
  redraw = true;
  StopSignal::wake();
}

void putAway() {
  if (!entered.exchange(false)) return;
  const OutputSignalBlocked blocked;
  send(screen.leave);
  if (has_modes) tcsetattr(screen.input, TCSANOW, &modes_before);
}

// After the handler has returned, the signal has its former effect, as if there was no handler.
extern "C" void onFatal(int signal_number) {
  TerminalGuard::leave();
  sigaction(signal_number, &replaced[static_cast<std::size_t>(signal_number)].before, nullptr);
  raise(signal_number);
}

extern "C" void onStop(int signal_number) {
  const int error = errno;
  if (entered && has_modes) tcgetattr(screen.input, &modes_inside);
  putAway();
  struct sigaction ours {};
  const auto& before = replaced[static_cast<std::size_t>(signal_number)].before;
  sigaction(signal_number, &before, &ours);
  raise(signal_number);
  sigset_t set;
  sigset_t blocked;
  sigemptyset(&set);
  sigaddset(&set, signal_number);
  pthread_sigmask(SIG_UNBLOCK, &set, &blocked);  // the process is stopped here
  pthread_sigmask(SIG_SETMASK, &blocked, nullptr);
  sigaction(signal_number, &ours, nullptr);
  show();
  errno = error;
}

// Another program may have drawn on the terminal, also after SIGSTOP, for which there is no
// handler.
extern "C" void onContinue(int) {
  const int error = errno;
  entered = false;
  show();
  errno = error;
}

extern "C" void onResize(int) {
  const int error = errno;
  redraw = true;
  StopSignal::wake();
  errno = error;
}

void handle(int signal_number, void (*handler)(int)) {
  Replaced& one = replaced[static_cast<std::size_t>(signal_number)];
  sigaction(signal_number, nullptr, &one.before);
  if (one.before.sa_handler == SIG_IGN) return;
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_flags = SA_ONSTACK;
  sigemptyset(&action.sa_mask);
  one.is_ours = sigaction(signal_number, &action, nullptr) == 0;
}

void putBack(int signal_number) {
  Replaced& one = replaced[static_cast<std::size_t>(signal_number)];
  if (std::exchange(one.is_ours, false)) sigaction(signal_number, &one.before, nullptr);
}

// The handler of a stack overflow needs another stack. A sanitizer has one already.
void provideStack() {
  static std::array<std::byte, kAlternateStack> memory;
  stack_t stack{};
  if (sigaltstack(nullptr, &stack) != 0 || (stack.ss_flags & SS_DISABLE) == 0) return;
  stack = {.ss_sp = memory.data(), .ss_flags = 0, .ss_size = memory.size()};
  sigaltstack(&stack, nullptr);
}

}  // namespace

TerminalGuard::TerminalGuard(const Screen& given) {
  screen = given;
  has_modes = screen.input >= 0 && tcgetattr(screen.input, &modes_before) == 0;
  modes_inside = modes_before;
  [[maybe_unused]] static const int registered = std::atexit([] { leave(); });
  provideStack();
  for (const int signal_number : kFatal) handle(signal_number, onFatal);
  handle(SIGTSTP, onStop);
  handle(SIGCONT, onContinue);
  handle(SIGWINCH, onResize);
}

TerminalGuard::~TerminalGuard() {
  leave();
  for (const int signal_number : kFatal) putBack(signal_number);
  for (const int signal_number : kSuspending) putBack(signal_number);
}

void TerminalGuard::enter() {
  wanted = true;
  show();
}

void TerminalGuard::leave() noexcept {
  wanted = false;
  putAway();
}

bool TerminalGuard::isInForeground() {
  const pid_t foreground = tcgetpgrp(screen.output);
  return foreground < 0 || foreground == getpgrp();  // below 0: not the controlling terminal
}

bool TerminalGuard::isRedrawDue() {
  return redraw;
}

bool TerminalGuard::takeRedraw() {
  return redraw.exchange(false);
}

}  // namespace tev::host
