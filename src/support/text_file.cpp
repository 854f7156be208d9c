#include "src/support/text_file.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

#include "tev/logger.h"

namespace tev::support {
namespace {

using std::chrono::milliseconds;

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

class Descriptor {
 public:
  explicit Descriptor(const char* path) : fd_(::open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC)) {}
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

bool isPipe(int fd) {
  struct stat status {};
  return ::fstat(fd, &status) == 0 && S_ISFIFO(status.st_mode);
}

// Whether data or the end of the file arrives within the time.
bool waitForMore(int fd, milliseconds patience) {
  using std::chrono::steady_clock;
  const auto deadline = steady_clock::now() + patience;
  for (;;) {
    const auto left = std::chrono::ceil<milliseconds>(deadline - steady_clock::now());
    pollfd waited{fd, POLLIN, 0};
    const int ready = ::poll(&waited, 1, static_cast<int>(std::max(left, milliseconds(0)).count()));
    if (ready >= 0 || errno != EINTR) return ready > 0;
  }
}

struct Text {
  std::string bytes;
  std::string cut_because;  // empty when the text is complete
};

Text cutByTheWait(std::string bytes, milliseconds patience) {
  return {std::move(bytes), "nothing came for " + std::to_string(patience.count()) + " ms"};
}

// Reads until the end, a limit, or an error. After an error, returns what was read, if anything.
std::optional<Text> readFrom(int fd, const TextLimits& limits) {
  std::string text;
  char chunk[4096];
  // A read from a pipe without a writer reports the end of the file.
  if (limits.until_first.count() > 0 && isPipe(fd) && !waitForMore(fd, limits.until_first))
    return cutByTheWait(std::move(text), limits.until_first);
  while (text.size() <= limits.bytes) {
    const ssize_t got = ::read(fd, chunk, sizeof chunk);
    if (got == 0) return Text{std::move(text), ""};
    if (got > 0) {
      text.append(chunk, static_cast<std::size_t>(got));
    } else if (errno == EAGAIN) {
      if (!waitForMore(fd, limits.until_next))
        return cutByTheWait(std::move(text), limits.until_next);
    } else if (errno != EINTR) {
      if (text.empty()) return std::nullopt;
      return Text{std::move(text), std::strerror(errno)};
    }
  }
  return Text{std::move(text), "it has more than " + std::to_string(limits.bytes) + " bytes"};
}

std::optional<Text> readFile(const std::string& path, const TextLimits& limits) {
  const Descriptor file(path.c_str());
  return file.get() < 0 ? std::nullopt : readFrom(file.get(), limits);
}

}  // namespace

std::optional<std::string> readWholeText(const char* tag, const std::string& path,
                                         const TextLimits& limits) {
  auto text = readFile(path, limits);
  if (!text) return std::nullopt;
  if (!text->cut_because.empty()) {
    TEV_LOG_WARNING("[%s] %s is not read: %s", tag, path.c_str(), text->cut_because.c_str());
    return std::nullopt;
  }
  if (text->bytes.starts_with(kByteOrderMark)) text->bytes.erase(0, kByteOrderMark.size());
  return std::move(text->bytes);
}

std::optional<std::string> readFirstLines(const char* tag, const std::string& path,
                                          std::size_t max_bytes) {
  auto text = readFile(path, {.bytes = max_bytes, .until_first = milliseconds(0)});
  if (!text) return std::nullopt;
  std::string& bytes = text->bytes;
  if (!text->cut_because.empty()) {
    // A cut line is dropped, because it could have a different meaning.
    bytes.resize(std::min(bytes.size(), max_bytes));
    bytes.erase(bytes.rfind('\n') + 1);
    TEV_LOG_WARNING("[%s] %s: only the first %zu bytes are read", tag, path.c_str(), bytes.size());
  }
  return std::move(bytes);
}

}  // namespace tev::support
