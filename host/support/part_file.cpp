#include "host/support/part_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

#include "host/support/errors.h"
#include "host/support/text.h"

namespace tev::host {

PartFile::PartFile(std::string path) : path_(std::move(path)), part_path_(path_ + ".part") {
  descriptor_ = open(part_path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (descriptor_ < 0) fail("create", errno);
}

PartFile::~PartFile() {
  if (descriptor_ < 0) return;
  close(descriptor_);
  unlink(part_path_.c_str());
}

void PartFile::write(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(descriptor_, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) fail("write", written < 0 ? errno : EIO);
    bytes.remove_prefix(static_cast<std::size_t>(written));
    size_ += static_cast<std::uint64_t>(written);
  }
}

void PartFile::finish() {
  // Some file systems report a failed write only here.
  if (close(std::exchange(descriptor_, -1)) == 0 &&
      std::rename(part_path_.c_str(), path_.c_str()) == 0)
    return;
  const int error = errno;
  unlink(part_path_.c_str());
  fail("write", error);
}

void PartFile::fail(const char* what, int error) const {
  throw RunError(fmt::format("cannot {} {}: {}", what, asPrintable(path_),
                             std::generic_category().message(error)));
}

}  // namespace tev::host
