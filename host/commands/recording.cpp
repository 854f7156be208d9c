#include "host/commands/recording.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "host/support/bounded_write.h"
#include "host/support/errors.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

void expectOther(const struct stat& written, const std::vector<std::string>& inputs) {
  for (const std::string& path : inputs) {
    struct stat read {};
    if (stat(path.c_str(), &read) == 0 && read.st_dev == written.st_dev &&
        read.st_ino == written.st_ino)
      throw UsageError(fmt::format("--output: {} is to be read", asPrintable(path)));
  }
}

}  // namespace

ReadingProgress::~ReadingProgress() {
  if (is_drawn_) write("\r\x1b[K");
}

void ReadingProgress::show(const CaptureSource& source) {
  constexpr std::chrono::milliseconds kEvery{200};
  const auto now = std::chrono::steady_clock::now();
  if (!is_shown_ || now - drawn_ < kEvery) return;
  drawn_ = now;
  is_drawn_ = true;
  write(fmt::format("\r{:3.0f} %", 100 * static_cast<double>(source.readBytes()) /
                                       static_cast<double>(source.size())));
}

void ReadingProgress::write(const std::string& text) {
  writeAll(STDERR_FILENO, text, std::chrono::milliseconds(100));
}

RunStatus statusOf(const CaptureSource& source) {
  RunStatus status;
  status.source = source.name();
  status.now_usec = source.nowUsec();
  status.elapsed_seconds = static_cast<double>(status.now_usec - source.beginUsec()) / 1e6;
  status.devices = source.counts().value_or(std::vector<DeviceCounts>{});
  for (const DeviceCounts& one : status.devices) status.lost_samples += one.lost;
  return status;
}

void expectOtherFile(int output, const std::vector<std::string>& inputs) {
  struct stat written {};
  if (fstat(output, &written) == 0) expectOther(written, inputs);
}

void expectOtherFile(const std::string& output, const std::vector<std::string>& inputs) {
  struct stat written {};
  if (stat(output.c_str(), &written) == 0) expectOther(written, inputs);
}

}  // namespace tev::host
