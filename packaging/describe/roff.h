// Text in the language of manual pages.
#pragma once

#include <string>
#include <string_view>

namespace tev::describe {

// A text as it is, also at the beginning of a line.
std::string roff(std::string_view text);

std::string bold(std::string_view text);
std::string italic(std::string_view text);

// A text in which names of options are bold.
std::string prose(std::string_view text);

}  // namespace tev::describe
