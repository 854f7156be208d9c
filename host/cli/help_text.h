// Examples and exit codes, as the help and the manual show them.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace tev::host {

struct Example {
  const char* line;     // without the program's name
  const char* meaning;  // begins with a small letter
};

std::span<const Example> examples();

struct ExitMeaning {
  int code;
  const char* meaning;
};

// Of one command; of all commands with an empty name.
std::span<const ExitMeaning> exitCodes(std::string_view command);

// Both, as the end of the help of one command; of all commands with an empty name.
std::string helpFooter(std::string_view command);

}  // namespace tev::host
