#include "host/outputs/output_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

#include "host/support/bounded_write.h"
#include "host/support/errors.h"
#include "host/support/log.h"
#include "host/support/stop_signal.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kLargeBytes = std::size_t{1} << 18;
constexpr std::chrono::milliseconds kSlice{100};  // of a wait

bool isFifo(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISFIFO(status.st_mode);
}

bool isRegular(int descriptor) {
  struct stat status {};
  return fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

// Without waiting, for a named pipe without a reader. -1 with errno after an error.
int openForWriting(const std::string& path) {
  return open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0666);
}

int openWhenRead(const std::string& path) {
  bool waits = false;
  while (true) {
    const int descriptor = openForWriting(path);
    if (descriptor >= 0 || errno != ENXIO || !isFifo(path)) return descriptor;
    if (!std::exchange(waits, true))
      Log::instance().say(fmt::format("tev-host: waiting for a reader of {}", asPrintable(path)));
    StopSignal::waitUntil(Clock::now() + kSlice);
    if (StopSignal::requests() > 0)
      throw RunError(fmt::format("cannot write {}: it has no reader", asPrintable(path)));
  }
}

// Another description of the same terminal. Its writes never block, which does not change the one
// that other programs use, too. -1 when it cannot be opened.
int openAgain(int descriptor) {
  return open(fmt::format("/proc/self/fd/{}", descriptor).c_str(),
              O_WRONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
}

}  // namespace

OutputFile::OutputFile(const std::string& path) {
  if (path.empty() || path == "-") {
    name_ = "standard output";
    if (isatty(STDOUT_FILENO) == 1) descriptor_ = openAgain(STDOUT_FILENO);
    owned_ = descriptor_ >= 0;
    if (!owned_) descriptor_ = STDOUT_FILENO;
  } else {
    name_ = asPrintable(path);
    descriptor_ = openWhenRead(path);
    if (descriptor_ < 0) fail(errno);
    owned_ = true;
  }
  is_regular_ = isRegular(descriptor_);
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

void OutputFile::beginRecord(std::size_t number) {
  endRecord();
  records_.push_back({number, buffer_.size(), buffer_.size()});
  in_record_ = true;
}

void OutputFile::endRecord() {
  if (std::exchange(in_record_, false)) records_.back().end = buffer_.size();
}

// The end of the last whole record up to this position of the buffer. A buffer contains only whole
// records.
std::size_t OutputFile::lastBoundary(std::size_t at) const {
  if (at >= buffer_.size()) return buffer_.size();
  const auto after = std::ranges::upper_bound(records_, at, {}, &Record::begin);
  if (after == records_.begin()) return 0;
  const Record& record = *std::prev(after);
  return record.end <= at ? record.end : record.begin;
}

// Returns the number of bytes that are in the file.
std::size_t OutputFile::writeToRegularFile() {
  std::size_t written = 0;
  while (written < buffer_.size()) {
    const ssize_t count = ::write(descriptor_, &buffer_[written], buffer_.size() - written);
    if (count >= 0) {
      written += static_cast<std::size_t>(count);
    } else if (errno != EINTR) {
      error_ = errno;
      break;
    }
  }
  // The part of a record at the end is removed, unless another program has written behind it.
  const auto excess = static_cast<off_t>(written - lastBoundary(written));
  const off_t end = lseek(descriptor_, 0, SEEK_CUR);
  struct stat status {};
  if (excess == 0 || fstat(descriptor_, &status) != 0 || status.st_size != end ||
      ftruncate(descriptor_, end - excess) != 0)
    return written;
  lseek(descriptor_, end - excess, SEEK_SET);
  return lastBoundary(written);
}

// Writes whole records together, as far as they fit into one write. Returns the number of bytes
// that were written.
std::size_t OutputFile::writeToReader() {
  const std::string_view text = buffer_;
  std::size_t written = 0;
  auto last_success = Clock::now();
  while (written < text.size()) {
    std::size_t end = lastBoundary(written + kMaxWrite);
    if (end <= written) end = text.size();
    const ssize_t count = writeSome(descriptor_, text.substr(written, end - written), kSlice);
    if (count > 0) {
      written += static_cast<std::size_t>(count);
      last_success = Clock::now();
    } else if (count < 0) {
      error_ = errno;
      break;
    } else if (is_worth_waiting_ && !is_worth_waiting_(Clock::now() - last_success)) {
      given_up_ = true;
      break;
    }
  }
  return written;
}

// Empties the buffer.
void OutputFile::settle(std::size_t written) {
  for (const Record& record : records_)
    if (record.end > written) missing_records_.push_back(record.number);
  missing_bytes_ += buffer_.size() - written;
  records_.clear();
  buffer_.clear();
}

void OutputFile::flush() {
  endRecord();
  if (ended_) return settle(0);
  if (replaces_special_ && isTerminal()) buffer_ = printableJsonLines(buffer_);
  const std::size_t written = is_regular_ ? writeToRegularFile() : writeToReader();
  ended_ = error_ != 0 || given_up_;
  settle(written);
  if (error_ == EPIPE) throw ClosedPipe();
  if (error_ != 0) fail(error_);
}

void OutputFile::flushWhenLarge() {
  if (buffer_.size() >= kLargeBytes) flush();
}

void OutputFile::close() {
  flush();
  ended_ = true;
  if (!std::exchange(owned_, false)) return;
  if (::close(descriptor_) != 0) fail(errno);
}

}  // namespace tev::host
