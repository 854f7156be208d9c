#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tev/export.h"

namespace tev::string {

// `text` without white space (blank, tab, new line, carriage return, form feed, vertical tab) at
// both ends.
TEV_API std::string trim(std::string_view text);

}  // namespace tev::string

namespace tev::support {

// `text` without those of `characters` that stand at its ends.
std::string_view trimView(std::string_view text, std::string_view characters);

// Pieces between separators, empty ones included; no separator: one piece.
std::vector<std::string_view> split(std::string_view text, char separator);

}  // namespace tev::support
