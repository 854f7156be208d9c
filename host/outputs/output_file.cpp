#include "host/outputs/output_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

#include "host/support/errors.h"

namespace tev::host {
namespace {

constexpr std::size_t kLargeBytes = std::size_t{1} << 18;

}  // namespace

OutputFile::OutputFile(const std::string& path) {
  if (path.empty() || path == "-") {
    name_ = "standard output";
    descriptor_ = STDOUT_FILENO;
    return;
  }
  name_ = path;
  descriptor_ = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
  if (descriptor_ < 0) fail(errno);
  owned_ = true;
}

OutputFile::~OutputFile() {
  if (owned_) ::close(descriptor_);
}

void OutputFile::fail(int error) const {
  throw RunError(fmt::format("cannot write {}: {}", name_, std::strerror(error)));
}

void OutputFile::begin() {
  if (owned_ && ftruncate(descriptor_, 0) != 0 && errno != EINVAL) fail(errno);  // EINVAL: a device
}

bool OutputFile::isTerminal() const {
  return isatty(descriptor_) == 1;
}

void OutputFile::flush() {
  const std::string text = std::exchange(buffer_, {});
  for (std::string_view left = text; !left.empty();) {
    const ssize_t written = ::write(descriptor_, left.data(), left.size());
    if (written >= 0)
      left.remove_prefix(static_cast<std::size_t>(written));
    else if (errno == EPIPE)
      throw ClosedPipe();
    else if (errno != EINTR)
      fail(errno);
  }
}

void OutputFile::flushWhenLarge() {
  if (buffer_.size() >= kLargeBytes) flush();
}

void OutputFile::close() {
  flush();
  if (!std::exchange(owned_, false)) return;
  if (::close(descriptor_) != 0) fail(errno);
}

}  // namespace tev::host
