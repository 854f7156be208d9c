#include "host/support/stop_signal.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <system_error>

#include "host/support/terminal_guard.h"

namespace tev::host {
namespace {

constexpr int kPatience = 3;

// Static, because the signal handlers use them.
std::atomic<int> event_descriptor{-1};
std::atomic<int> request_count{0};
std::atomic<int> hang_up_count{0};
std::atomic<int> terminal_descriptor{-1};
static_assert(std::atomic<int>::is_always_lock_free);

extern "C" void onStopSignal(int signal_number) {
  const int error = errno;
  if (++request_count >= kPatience) {
    TerminalGuard::leave();
    signal(signal_number, SIG_DFL);
    raise(signal_number);
  }
  StopSignal::wake();
  errno = error;
}

// Whether there was a terminal that does not exist any more. Async-signal-safe.
bool isTerminalLost() {
  pollfd terminal{terminal_descriptor, 0, 0};
  return poll(&terminal, 1, 0) > 0;
}

extern "C" void onHangUp(int signal_number) {
  const int error = errno;
  if (isTerminalLost())
    onStopSignal(signal_number);
  else
    ++hang_up_count;
  errno = error;
}

bool isIgnored(int signal_number) {
  struct sigaction action {};
  return sigaction(signal_number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

void handle(int signal_number, void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  sigemptyset(&action.sa_mask);
  sigaction(signal_number, &action, nullptr);
}

}  // namespace

StopSignal::StopSignal(HangUp hang_up) {
  event_descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (event_descriptor < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
  request_count = 0;
  hang_up_count = 0;
  if (hang_up == HangUp::counts) terminal_descriptor = open("/dev/tty", O_RDONLY | O_CLOEXEC);
  // SIGINT is handled even if the process inherited it as ignored, because a shell without job
  // control starts background commands in this way. SIGHUP then stays ignored, because nohup
  // ignores it on purpose.
  handle(SIGINT, onStopSignal);
  handle(SIGTERM, onStopSignal);
  if (!isIgnored(SIGHUP)) handle(SIGHUP, hang_up == HangUp::counts ? onHangUp : onStopSignal);
  handle(SIGPIPE, SIG_IGN);
  handle(SIGXFSZ, SIG_IGN);
}

StopSignal::~StopSignal() {
  for (const int signal_number : {SIGINT, SIGTERM, SIGHUP})
    if (!isIgnored(signal_number)) handle(signal_number, SIG_DFL);
  close(event_descriptor.exchange(-1));
  if (const int terminal = terminal_descriptor.exchange(-1); terminal >= 0) close(terminal);
}

int StopSignal::requests() {
  return request_count;
}

int StopSignal::hangUps() {
  return hang_up_count;
}

void StopSignal::request() {
  ++request_count;
  wake();
}

bool StopSignal::waitUntil(std::chrono::steady_clock::time_point time, int descriptor) {
  using std::chrono::nanoseconds;
  while (requests() == 0) {
    const nanoseconds left = time - std::chrono::steady_clock::now();
    if (left <= nanoseconds::zero()) return false;
    const timespec timeout{static_cast<time_t>(left.count() / 1'000'000'000),
                           static_cast<long>(left.count() % 1'000'000'000)};
    std::array<pollfd, 2> events{{{event_descriptor, POLLIN, 0}, {descriptor, POLLIN, 0}}};
    if (ppoll(events.data(), events.size(), &timeout, nullptr) <= 0) continue;
    std::uint64_t wakes = 0;
    const bool woken = read(event_descriptor, &wakes, sizeof wakes) > 0;
    // A terminal that is gone is readable, too.
    if ((events[1].revents & (POLLHUP | POLLERR | POLLNVAL)) != 0)
      request();
    else if (events[1].revents != 0)
      return true;
    if (woken) return false;
  }
  return false;
}

void StopSignal::wake() {
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = write(event_descriptor, &one, sizeof one);
}

}  // namespace tev::host
