// Common code of the fuzz targets.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "src/support/text.h"
#include "tev/logger.h"

namespace tev::test {

// Like assert(), in every build.
inline void check(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  std::abort();
}

inline void formatAndForget(std::uint32_t, const char* format, ...) TEV_PRINTF_FORMAT(2, 3);
inline void formatAndForget(std::uint32_t, const char* format, ...) {
  char text[256];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
}

// Formats every message, so that its arguments are read.
inline void formatMessages() {
  tev_set_log_func(formatAndForget, TEV_LEVEL_DEBUG);
}

inline std::vector<std::string> linesOf(const std::uint8_t* data, std::size_t size) {
  const std::string text(data, data + size);
  const auto pieces = support::split(text, '\n');
  return {pieces.begin(), pieces.end()};
}

}  // namespace tev::test
