// Texts from outside, made fit to be printed.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tev::host {

// Length in bytes of the UTF-8 character that `text` begins with; 0 when it begins with none.
std::size_t utf8Length(std::string_view text);

// `text` with every byte that belongs to no UTF-8 character written as \xhh.
std::string asUtf8(std::string_view text);

// The same, with control characters written so too: safe for a terminal, and on one line.
std::string asPrintable(std::string_view text);

// Characters, which is what takes up columns on a terminal; `text` is UTF-8.
std::size_t displayWidth(std::string_view text);

// `text` with spaces before it up to `width`; longer text is cut, which a "~" at its end shows.
std::string padLeft(std::string_view text, std::size_t width);
// With the spaces behind it.
std::string padRight(std::string_view text, std::size_t width);

}  // namespace tev::host
