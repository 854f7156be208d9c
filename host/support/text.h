// Makes external texts printable.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tev::host {

// Length in bytes of the UTF-8 character at the beginning of `text`; 0 when there is none.
std::size_t utf8Length(std::string_view text);

// `text` with \xhh in place of every byte that is not part of a UTF-8 character.
std::string asUtf8(std::string_view text);

// The same, with these characters replaced, too: control characters, characters without width, and
// those that change the direction of writing. The result is safe for a terminal, and on one line.
std::string asPrintable(std::string_view text);

// Lines of such text: only the line feeds are kept.
std::string printableLines(std::string_view text);

// The same as printableLines(), with \uhhhh in place of such characters, which is valid in JSON,
// too.
std::string printableJsonLines(std::string_view text);

// Number of characters, which is the width on a terminal. `text` is UTF-8.
std::size_t displayWidth(std::string_view text);

// `text` with spaces before it, up to `width`. Longer text is cut and ends with "~".
std::string padLeft(std::string_view text, std::size_t width);
// The same, with the spaces after it.
std::string padRight(std::string_view text, std::size_t width);

// "a, b, c", printable.
std::string commaSeparated(const std::vector<std::string>& names);

// Whether every file system takes the character: a letter of ASCII, a digit, '-' or '_'.
bool isPlainInFileName(char c);

// `text` with %hh in place of each byte that does not stay.
std::string percentEncoded(std::string_view text, bool (*stays)(char));

// "1 event", "2 events".
std::string counted(std::uint64_t number, std::string_view noun);

}  // namespace tev::host
