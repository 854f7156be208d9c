#include "host/capture/parts.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <ctime>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "host/support/log.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kPattern = ".########T######Z.######";  // "#": a digit

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

bool matchesPattern(std::string_view text) {
  return std::ranges::equal(text, kPattern, [](char one, char wanted) {
    return wanted == '#' ? std::isdigit(static_cast<unsigned char>(one)) != 0 : one == wanted;
  });
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
    if (other.size() != name.size() + kPattern.size() + frame.after.size()) continue;
    if (!other.starts_with(name) || !other.ends_with(frame.after)) continue;
    if (matchesPattern(std::string_view(other).substr(name.size(), kPattern.size())))
      parts.push_back((folder / other).string());
  }
  std::ranges::sort(parts);
  return parts;
}

void removeOldParts(const std::string& path, std::uint64_t keep) {
  const std::vector<std::string> parts = existingParts(path);
  for (std::size_t i = 0; i + keep < parts.size(); ++i) {
    std::error_code error;
    fs::remove(parts[i], error);
    if (error)
      Log::instance().say(
          fmt::format("tev-host: cannot remove {}: {}", asPrintable(parts[i]), error.message()));
  }
}

}  // namespace tev::host
