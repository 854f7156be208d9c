#include "src/support/text_file.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <utility>

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
  int ready = 0;
  do ready = ::poll(&waited, 1, kPatienceMsec);
  while (ready < 0 && errno == EINTR);
  return ready > 0;
}

struct Text {
  std::string bytes;
  bool whole;
};

// Reads until the end. The limit, or an error after the first byte, ends the text before the line
// that it cuts.
std::optional<Text> readUpTo(int fd, std::size_t max_bytes) {
  std::string text;
  char chunk[4096];
  while (text.size() <= max_bytes) {
    const ssize_t got = ::read(fd, chunk, sizeof chunk);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0 && errno == EAGAIN && waitForMore(fd)) continue;
    if (got < 0 && text.empty() && errno != EAGAIN) return std::nullopt;
    if (got == 0) return Text{std::move(text), true};
    if (got < 0) break;
    text.append(chunk, static_cast<std::size_t>(got));
  }
  // Half a line could mean something else than the whole.
  text.resize(std::min(text.size(), max_bytes));
  text.erase(text.rfind('\n') + 1);
  return Text{std::move(text), false};
}

std::vector<std::string> linesOf(std::string_view text) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    lines.emplace_back(line);
    text.remove_prefix(std::min(text.size(), line.size() + 1));
  }
  return lines;
}

}  // namespace

std::optional<std::vector<std::string>> readLines(const std::string& path, CutText cut,
                                                  std::size_t max_bytes) {
  const Descriptor file(path.c_str());
  if (file.get() < 0) return std::nullopt;
  const auto text = readUpTo(file.get(), max_bytes);
  if (!text) return std::nullopt;
  if (!text->whole) {
    TEV_LOG_WARNING("%s: only the first %zu bytes are read", path.c_str(), text->bytes.size());
    if (cut == CutText::kRefused) {
      errno = EFBIG;
      return std::nullopt;
    }
  }
  return linesOf(text->bytes);
}

}  // namespace tev::support
