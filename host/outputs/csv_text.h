#pragma once

#include <string>
#include <string_view>

namespace tev::host {

// Appends the text as a field of a CSV line, in quotes if it needs them (RFC 4180).
void appendCsvText(std::string& out, std::string_view text);

}  // namespace tev::host
