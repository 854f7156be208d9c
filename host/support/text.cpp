#include "host/support/text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <utility>

namespace tev::host {
namespace {

std::uint8_t byteAt(std::string_view text, std::size_t i) {
  return static_cast<std::uint8_t>(text[i]);
}

// The number of a valid UTF-8 character.
std::uint32_t codePoint(std::string_view character) {
  if (character.size() == 1) return byteAt(character, 0);
  std::uint32_t number = byteAt(character, 0) & (0x7fu >> character.size());
  for (std::size_t i = 1; i < character.size(); ++i)
    number = number << 6 | (byteAt(character, i) & 0x3fu);
  return number;
}

// Whether a terminal does not simply show this character: controls (C0, DEL, C1), characters that
// change the direction of writing, separators of lines, and characters without width.
bool isInvisible(std::uint32_t code_point) {
  constexpr std::pair<std::uint32_t, std::uint32_t> kRanges[] = {
      {0x00, 0x1f},     {0x7f, 0x9f},     {0x61c, 0x61c},  {0x200b, 0x200f},
      {0x2028, 0x202e}, {0x2060, 0x206f}, {0xfeff, 0xfeff}};
  return std::ranges::any_of(kRanges, [&](const auto& range) {
    return range.first <= code_point && code_point <= range.second;
  });
}

void appendEscaped(std::string& out, std::string_view bytes) {
  for (const char byte : bytes)
    fmt::format_to(std::back_inserter(out), "\\x{:02x}", static_cast<std::uint8_t>(byte));
}

// `append_special` appends a valid character to `out`, if it has to be replaced, and returns
// whether it did.
template <class AppendSpecial>
std::string escaped(std::string_view text, AppendSpecial append_special) {
  std::string out;
  out.reserve(text.size());
  while (!text.empty()) {
    const std::size_t length = utf8Length(text);
    const std::string_view character = text.substr(0, length ? length : 1);
    if (length == 0)
      appendEscaped(out, character);
    else if (!append_special(out, character))
      out += character;
    text.remove_prefix(character.size());
  }
  return out;
}

bool appendInvisible(std::string& out, std::string_view character) {
  if (!isInvisible(codePoint(character))) return false;
  appendEscaped(out, character);
  return true;
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
  return escaped(text, [](std::string&, std::string_view) { return false; });
}

std::string asPrintable(std::string_view text) {
  return escaped(text, appendInvisible);
}

std::string printableLines(std::string_view text) {
  return escaped(text, [](std::string& out, std::string_view character) {
    return character != "\n" && appendInvisible(out, character);
  });
}

std::string printableJsonLines(std::string_view text) {
  return escaped(text, [](std::string& out, std::string_view character) {
    const std::uint32_t code_point = codePoint(character);
    if (character == "\n" || !isInvisible(code_point)) return false;
    fmt::format_to(std::back_inserter(out), "\\u{:04x}", code_point);
    return true;
  });
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

bool isPlainInFileName(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
         c == '-';
}

std::string percentEncoded(std::string_view text, bool (*stays)(char)) {
  std::string encoded;
  for (const char c : text)
    if (stays(c))
      encoded += c;
    else
      fmt::format_to(std::back_inserter(encoded), "%{:02x}", static_cast<std::uint8_t>(c));
  return encoded;
}

std::string counted(std::uint64_t number, std::string_view noun) {
  return fmt::format("{} {}{}", number, noun, number == 1 ? "" : "s");
}

}  // namespace tev::host
