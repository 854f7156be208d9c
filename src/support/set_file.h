// Common code for counter-set and field-set files.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "src/support/text.h"

namespace tev::support {

// A line or a part of a line, without blanks, tabs, carriage returns and line feeds at both ends.
std::string_view trimLine(std::string_view line);

// Words for the messages.
struct SetFileKind {
  const char* content;  // "... set"
  const char* extension;
};

// Reads a set file, passes its lines to `load`, which returns whether they contain a pattern, and
// sets `name` to the stem of the file's name. Returns false, with the reason logged, when the lines
// have no pattern or the file cannot be read completely.
bool loadSetFile(const std::string& filename, const SetFileKind& kind, std::string& name,
                 const std::function<bool(const Lines&)>& load);

}  // namespace tev::support
