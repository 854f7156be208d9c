#include "host/capture/parts.h"

#include <fcntl.h>
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <system_error>
#include <tuple>

#include "host/capture/format.h"
#include "host/support/log.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kTime = ".########T######Z.";  // "#": a digit
constexpr std::size_t kLeastDigits = 6;                   // of the number behind it

// Text before and after the time and the number.
struct Frame {
  std::string before;
  std::string after;
};

Frame frameOf(const std::string& path) {
  const fs::path whole = path;
  const std::string extension = whole.extension().string();
  return {path.substr(0, path.size() - extension.size()),
          extension.empty() ? ".tevcap" : extension};
}

bool isDigit(char one) {
  return one >= '0' && one <= '9';
}

// Whether the text is a time and a number.
bool isTimeAndNumber(std::string_view text) {
  if (text.size() < kTime.size() + kLeastDigits) return false;
  return std::ranges::equal(
             text.substr(0, kTime.size()), kTime,
             [](char one, char wanted) { return wanted == '#' ? isDigit(one) : one == wanted; }) &&
         std::ranges::all_of(text.substr(kTime.size()), isDigit);
}

// Whether it is a regular file that begins like a capture.
bool isCapture(const std::string& path) {
  std::error_code error;
  if (!fs::is_regular_file(fs::symlink_status(path, error))) return false;
  char begin[sizeof kCaptureMagic] = {};
  std::ifstream(path, std::ios::binary).read(begin, sizeof begin);
  return std::memcmp(begin, kCaptureMagic, sizeof begin) == 0;
}

}  // namespace

std::string partPath(const std::string& path, std::uint64_t unix_seconds, std::uint64_t number) {
  const Frame frame = frameOf(path);
  return fmt::format("{}.{:%Y%m%dT%H%M%SZ}.{:06}{}", frame.before,
                     fmt::gmtime(static_cast<std::time_t>(unix_seconds)), number, frame.after);
}

std::vector<std::string> existingParts(const std::string& path) {
  const Frame frame = frameOf(path);
  const fs::path folder = fs::path(path).parent_path();
  const std::string name = fs::path(frame.before).filename().string();
  std::vector<std::string> parts;
  std::error_code error;
  for (fs::directory_iterator entry(folder.empty() ? "." : folder, error), end;
       !error && entry != end; entry.increment(error)) {
    const std::string other = entry->path().filename().string();
    if (other.size() < name.size() + frame.after.size()) continue;
    if (!other.starts_with(name) || !other.ends_with(frame.after)) continue;
    const std::string_view all = other;
    if (isTimeAndNumber(all.substr(name.size(), other.size() - name.size() - frame.after.size())))
      parts.push_back((folder / other).string());
  }
  // By time, and then by number, which may have more digits.
  const std::size_t time_end = (folder / name).string().size() + kTime.size();
  std::ranges::sort(parts, {}, [time_end](const std::string& part) {
    return std::tuple(part.substr(0, time_end), part.size(), part);
  });
  return parts;
}

bool isBeingWritten(const std::string& path) {
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor < 0) return false;
  const bool is_locked = flock(descriptor, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  close(descriptor);
  return is_locked;
}

void removeOldParts(const std::string& path, std::uint64_t keep, const std::string& current) {
  const std::vector<std::string> parts = existingParts(path);
  for (std::size_t i = 0; i + keep < parts.size(); ++i) {
    if (parts[i] == current || !isCapture(parts[i]) || isBeingWritten(parts[i])) continue;
    std::error_code error;
    fs::remove(parts[i], error);
    if (error)
      Log::instance().say(
          fmt::format("tev-host: cannot remove {}: {}", asPrintable(parts[i]), error.message()));
  }
}

}  // namespace tev::host
