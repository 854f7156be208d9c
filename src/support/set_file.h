// What counter-set and field-set files have in common.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace tev::support {

// A line, or a piece of one, without blanks, tabs, carriage returns and line feeds at its ends.
std::string_view trimLine(std::string_view line);

// The words of the messages.
struct SetFileKind {
  const char* content;  // "... set"
  const char* extension;
};

// Reads a set file, puts the stem of its name into `name`, and hands its lines to `load`, which
// tells whether they held any pattern. False, with the reason logged, when they did not or there is
// no such file.
bool loadSetFile(const std::string& filename, const SetFileKind& kind, std::string& name,
                 const std::function<bool(const std::vector<std::string>&)>& load);

}  // namespace tev::support
