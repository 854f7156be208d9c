// External texts: files, pipes, devices. The time to wait for data and the memory are limited.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

namespace tev::support {

struct TextLimits {
  std::size_t bytes = std::size_t{16} << 20;
  std::chrono::milliseconds until_first{10'000};  // wait for the first data of a pipe
  std::chrono::milliseconds until_next{2'000};    // wait for further data
};

// The text of a file, without its byte order mark. Nothing when the file cannot be opened or read,
// or when a limit prevents reading it completely; a warning that begins with `[tag]` reports the
// limit.
std::optional<std::string> readWholeText(const char* tag, const std::string& path,
                                         const TextLimits& limits = {});

// The lines that end within `max_bytes`, with a warning when the file has more. Nothing when the
// file cannot be opened or read. A pipe without a writer counts as empty.
std::optional<std::string> readFirstLines(const char* tag, const std::string& path,
                                          std::size_t max_bytes = TextLimits{}.bytes);

}  // namespace tev::support
