// Common code of the fuzz targets.
#pragma once

#include <cstdio>
#include <cstdlib>

#include "src/support/text.h"
#include "tests/support/captured_log.h"

namespace tev::test {

// Like assert(), in every build.
inline void check(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  std::abort();
}

inline std::vector<std::string> linesOf(const std::uint8_t* data, std::size_t size) {
  const std::string text(data, data + size);
  const auto pieces = support::split(text, '\n');
  return {pieces.begin(), pieces.end()};
}

}  // namespace tev::test
