#include "host/support/text.h"

#include <fmt/format.h>

#include <cstdint>
#include <iterator>

namespace tev::host {
namespace {

std::uint8_t byteAt(std::string_view text, std::size_t i) {
  return static_cast<std::uint8_t>(text[i]);
}

// The control characters of a terminal: C0, DEL and C1.
bool isControl(std::string_view character) {
  const std::uint8_t first = byteAt(character, 0);
  return first < 0x20 || first == 0x7f || (first == 0xc2 && byteAt(character, 1) < 0xa0);
}

void appendEscaped(std::string& out, std::string_view bytes) {
  for (const char byte : bytes)
    fmt::format_to(std::back_inserter(out), "\\x{:02x}", static_cast<std::uint8_t>(byte));
}

std::string escaped(std::string_view text, bool controls_too) {
  std::string out;
  out.reserve(text.size());
  while (!text.empty()) {
    const std::size_t length = utf8Length(text);
    const std::string_view character = text.substr(0, length ? length : 1);
    if (length == 0 || (controls_too && isControl(character)))
      appendEscaped(out, character);
    else
      out += character;
    text.remove_prefix(character.size());
  }
  return out;
}

// `text` cut so that it takes up at most `width` columns.
std::string cut(std::string_view text, std::size_t width) {
  if (displayWidth(text) <= width) return std::string(text);
  if (width == 0) return {};
  std::size_t bytes = 0;
  for (std::size_t columns = 0; columns + 1 < width; ++columns)
    bytes += utf8Length(text.substr(bytes));
  return std::string(text.substr(0, bytes)) + "~";
}

}  // namespace

std::size_t utf8Length(std::string_view text) {
  if (text.empty()) return 0;
  const std::uint8_t first = byteAt(text, 0);
  if (first < 0x80) return 1;
  const std::size_t length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
  if (first < 0xc2 || first > 0xf4 || text.size() < length) return 0;
  for (std::size_t i = 1; i < length; ++i)
    if ((byteAt(text, i) & 0xc0) != 0x80) return 0;
  // Refuses overlong forms, surrogates, and numbers beyond the last code point.
  const std::uint8_t second = byteAt(text, 1);
  if ((first == 0xe0 && second < 0xa0) || (first == 0xed && second > 0x9f) ||
      (first == 0xf0 && second < 0x90) || (first == 0xf4 && second > 0x8f))
    return 0;
  return length;
}

std::string asUtf8(std::string_view text) {
  return escaped(text, false);
}

std::string asPrintable(std::string_view text) {
  return escaped(text, true);
}

std::size_t displayWidth(std::string_view text) {
  std::size_t width = 0;
  for (const char byte : text) width += (static_cast<std::uint8_t>(byte) & 0xc0) != 0x80;
  return width;
}

std::string padLeft(std::string_view text, std::size_t width) {
  const std::string shown = cut(text, width);
  return std::string(width - displayWidth(shown), ' ') + shown;
}

std::string padRight(std::string_view text, std::size_t width) {
  std::string shown = cut(text, width);
  shown.append(width - displayWidth(shown), ' ');
  return shown;
}

std::string commaSeparated(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : ", ") + asPrintable(name);
  return text;
}

}  // namespace tev::host
