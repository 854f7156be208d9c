#include "host/support/whole_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>

#include "host/support/errors.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

bool isSpecial(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode);
}

std::string withoutLinks(const std::string& path) {
  std::error_code error;
  const auto real = std::filesystem::weakly_canonical(path, error);
  return error ? path : real.string();
}

}  // namespace

WholeFile::WholeFile(const std::string& path)
    : path_(path == "-" ? "/dev/stdout" : withoutLinks(path)) {
  if (path == "-") {
    descriptor_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
  } else if (isSpecial(path_)) {
    descriptor_ = open(path_.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY);
  } else {
    unfinished_ = fmt::format("{}.unfinished-{}", path_, getpid());
    descriptor_ = open(unfinished_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  }
  if (descriptor_ < 0) {
    unfinished_.clear();
    fail(errno);
  }
}

WholeFile::~WholeFile() {
  if (descriptor_ >= 0) close(descriptor_);
  if (!unfinished_.empty()) unlink(unfinished_.c_str());
}

void WholeFile::fail(int error) const {
  throw RunError(fmt::format("cannot write {}: {}", asPrintable(path_), std::strerror(error)));
}

void WholeFile::write(std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = ::write(descriptor_, text.data(), text.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) fail(errno);
    size_ += static_cast<std::uint64_t>(count);
    text.remove_prefix(static_cast<std::size_t>(count));
  }
}

void WholeFile::finish(bool is_forced_out) {
  // Not every file can be forced out.
  if (is_forced_out && fdatasync(descriptor_) != 0 && errno != EINVAL && errno != EROFS)
    fail(errno);
  if (close(std::exchange(descriptor_, -1)) != 0) fail(errno);
  if (unfinished_.empty()) return;
  if (std::rename(unfinished_.c_str(), path_.c_str()) != 0) fail(errno);
  unfinished_.clear();
}

}  // namespace tev::host
