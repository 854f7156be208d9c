#pragma once

#include <string>
#include <string_view>

namespace tev::host {

// Appends the text as a JSON string, with quotes. Bytes that are not UTF-8 become \xhh.
void appendJsonText(std::string& out, std::string_view text);

// Appends a derived number with nine significant digits; null when it is not finite.
void appendJsonNumber(std::string& out, double number);

}  // namespace tev::host
