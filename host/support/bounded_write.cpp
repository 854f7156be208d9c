#include "host/support/bounded_write.h"

#include <limits.h>
#include <poll.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace tev::host {
namespace {

std::chrono::nanoseconds now() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

}  // namespace

const std::size_t kMaxWrite = PIPE_BUF;

ssize_t writeSome(int descriptor, std::string_view text,
                  std::chrono::milliseconds patience) noexcept {
  pollfd writable{descriptor, POLLOUT, 0};
  const int ready = poll(&writable, 1, static_cast<int>(patience.count()));
  if (ready <= 0) return ready == 0 || errno == EINTR ? 0 : -1;
  // After an error of the descriptor, the write reports it.
  const ssize_t written = write(descriptor, text.data(), std::min(text.size(), kMaxWrite));
  return written < 0 && (errno == EINTR || errno == EAGAIN) ? 0 : written;
}

std::size_t writeAll(int descriptor, std::string_view text,
                     std::chrono::milliseconds patience) noexcept {
  std::string_view left = text;
  auto deadline = now() + patience;
  while (!left.empty()) {
    const auto rest = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - now());
    const ssize_t written =
        writeSome(descriptor, left, std::max(rest, std::chrono::milliseconds::zero()));
    if (written < 0 || (written == 0 && now() >= deadline)) break;
    if (written == 0) continue;
    left.remove_prefix(static_cast<std::size_t>(written));
    deadline = now() + patience;
  }
  return text.size() - left.size();
}

}  // namespace tev::host
