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

// Reads a set file, hands its lines to `load`, which tells whether they held any pattern, and puts
// the stem of the file's name into `name`. False, with the reason logged, when they did not, or
// when the file cannot be read as a whole.
bool loadSetFile(const std::string& filename, const SetFileKind& kind, std::string& name,
                 const std::function<bool(const std::vector<std::string>&)>& load);

}  // namespace tev::support
