#include "src/support/text_file.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "src/support/text.h"
#include "tev/logger.h"

namespace tev::support {
namespace {

class Descriptor {
 public:
  explicit Descriptor(const char* path) : fd_(::open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC)) {}
  ~Descriptor() {
    const int reason = errno;  // the caller's to see
    if (fd_ >= 0) ::close(fd_);
    errno = reason;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

// A pipe whose writer takes longer is not waited for.
bool waitForMore(int fd) {
  constexpr int kPatienceMsec = 2000;
  pollfd waited{fd, POLLIN, 0};
  return ::poll(&waited, 1, kPatienceMsec) > 0;
}

// Reads until the end. The limit, or an error after the first byte, ends the text before the line
// that it cuts, with a warning.
std::optional<std::string> readUpTo(int fd, const std::string& path, std::size_t max_bytes) {
  std::string text;
  char chunk[4096];
  while (text.size() < max_bytes) {
    const ssize_t got = ::read(fd, chunk, std::min(sizeof chunk, max_bytes - text.size()));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0 && errno == EAGAIN && waitForMore(fd)) continue;
    if (got < 0 && text.empty() && errno != EAGAIN) return std::nullopt;
    if (got == 0) return text;
    if (got < 0) break;
    text.append(chunk, static_cast<std::size_t>(got));
  }
  // Cut short: half a line could mean something else than the whole.
  text.erase(text.rfind('\n') == std::string::npos ? 0 : text.rfind('\n') + 1);
  TEV_LOG_WARNING("%s: only the first %zu bytes are read", path.c_str(), text.size());
  return text;
}

}  // namespace

std::optional<std::vector<std::string>> readLines(const std::string& path, std::size_t max_bytes) {
  const Descriptor file(path.c_str());
  if (file.get() < 0) return std::nullopt;
  const auto text = readUpTo(file.get(), path, max_bytes);
  if (!text) return std::nullopt;

  const auto pieces = split(*text, '\n');
  std::vector<std::string> lines(pieces.begin(), pieces.end());
  if (lines.back().empty()) lines.pop_back();  // after the last line feed there is no line
  return lines;
}

}  // namespace tev::support
