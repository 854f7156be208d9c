#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace tev::support {

// Lines of a file from outside, without their line feeds. Opened without blocking and read up to
// `max_bytes`, so that a pipe, an endless device or a huge file costs a bounded time and memory; a
// line that does not end before that is left out with all that follows, with a warning, or the
// whole file is. Nothing when the file cannot be opened or read; `errno` then tells why.
enum class CutText { kKept, kRefused };
inline constexpr std::size_t kMaxTextFileBytes = std::size_t{16} << 20;
std::optional<std::vector<std::string>> readLines(const std::string& path,
                                                  CutText cut = CutText::kKept,
                                                  std::size_t max_bytes = kMaxTextFileBytes);

}  // namespace tev::support
