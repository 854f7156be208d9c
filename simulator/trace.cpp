#include "simulator/trace.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace simulator {
namespace {

// A device's name as one word; a long name is truncated.
class Word {
 public:
  explicit Word(const std::string* name) {
    if (!name) {
      add("-");
    } else if (name->empty()) {
      add("''");
    } else {
      for (const char c : *name) addCharacter(static_cast<unsigned char>(c));
    }
    text_[length_] = '\0';
  }
  const char* text() const { return text_; }

 private:
  void addCharacter(unsigned char c) {
    constexpr std::string_view kHex = "0123456789abcdef";
    if (c > ' ' && c < 0x7f && c != '\\') {
      const char plain = static_cast<char>(c);
      add({&plain, 1});
    } else {
      const char escaped[] = {'\\', 'x', kHex[c >> 4U], kHex[c & 0xfU]};
      add({escaped, sizeof escaped});
    }
  }

  void add(std::string_view part) {
    if (part.size() >= sizeof text_ - length_) return;
    length_ += part.copy(text_ + length_, part.size());
  }

  char text_[280];
  std::size_t length_ = 0;
};

// Writes a line with one call. With O_APPEND, lines of different threads and processes are then not
// mixed.
__attribute__((format(printf, 2, 3))) void writeLine(int descriptor, const char* format, ...) {
  if (descriptor < 0) return;
  char line[512];
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(line, sizeof line - 1, format, arguments);
  va_end(arguments);
  if (length < 0) return;
  const auto end = std::min(static_cast<std::size_t>(length), sizeof line - 2);
  line[end] = '\n';
  // Other errors, such as a full disk, are ignored: only the line is lost.
  while (write(descriptor, line, end + 1) < 0 && errno == EINTR) continue;
}

}  // namespace

Trace::Trace(const char* path) {
  if (!path || !*path) return;
  descriptor_ = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NONBLOCK, 0644);
  if (descriptor_ < 0)  // the log does not exist yet
    std::fprintf(stderr, "[vuna-sim] [error] no trace: %s: %s\n", path, std::strerror(errno));
}

Trace::~Trace() {
  if (descriptor_ >= 0) close(descriptor_);
}

void Trace::call(const char* function, const std::string* device, const char* place,
                 const char* result, bool fault) const noexcept {
  writeLine(descriptor_, "%s %s %s %s%s", function, Word(device).text(), place, result,
            fault ? " fault" : "");
}

void Trace::misuse(const char* function, const std::string* device,
                   const char* what) const noexcept {
  writeLine(descriptor_, "MISUSE %s %s %s", function, Word(device).text(), what);
}

void Trace::unload() const noexcept {
  writeLine(descriptor_, "UNLOAD - - 0");
}

}  // namespace simulator
