#include <algorithm>
#include <cstdio>
#include <cstring>

#include "tev/logger.h"

namespace {

constexpr std::size_t kBytesPerLine = 16;
constexpr std::size_t kBytesPerGroup = 8;

// One line: two groups of hexadecimal bytes, each followed by one more blank, then the characters.
// A partial line is padded to the column in which a full line has its bar.
void logLine(const unsigned char* bytes, std::size_t count) {
  char hex[100] = "";
  char characters[kBytesPerLine + 1] = "";
  std::size_t length = 0;
  for (std::size_t i = 0; i < count; ++i) {
    length += static_cast<std::size_t>(std::snprintf(
        hex + length, sizeof hex - length, (i + 1) % kBytesPerGroup == 0 ? "%02X  " : "%02X ",
        static_cast<unsigned>(bytes[i])));
    const bool printable = bytes[i] >= 0x20 && bytes[i] <= 0x7e;
    characters[i] = printable ? static_cast<char>(bytes[i]) : '.';
  }
  // The extra blanks are after the eighth and the sixteenth byte. A line that ends inside a group
  // does not have that group's blank yet.
  if (count < kBytesPerLine) {
    const std::size_t missing_blanks = (count < kBytesPerGroup ? 1 : 0) + 1;
    const std::size_t padding = missing_blanks + 3 * (kBytesPerLine - count);
    std::memset(hex + length, ' ', padding);
    length += padding;
  }
  std::snprintf(hex + length, sizeof hex - length, "|  %s ", characters);
  TEV_LOG_DEBUG("%s", hex);
}

}  // namespace

void log_hex(const void* data, std::size_t length) {
  if (!data || !tev_log_enabled(TEV_LEVEL_DEBUG)) return;
  const auto* bytes = static_cast<const unsigned char*>(data);
  for (std::size_t done = 0; done < length; done += kBytesPerLine)
    logLine(bytes + done, std::min(kBytesPerLine, length - done));
}
