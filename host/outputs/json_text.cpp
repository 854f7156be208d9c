#include "host/outputs/json_text.h"

#include <fmt/format.h>

#include <cmath>
#include <iterator>

#include "host/support/text.h"

namespace tev::host {

void appendJsonText(std::string& out, std::string_view text) {
  out += '"';
  for (const char character : asUtf8(text)) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte == '"' || byte == '\\') out += '\\';
    if (byte < 0x20 || byte == 0x7f)
      fmt::format_to(std::back_inserter(out), "\\u{:04x}", byte);
    else
      out += character;
  }
  out += '"';
}

void appendJsonNumber(std::string& out, double number) {
  if (std::isfinite(number))
    fmt::format_to(std::back_inserter(out), "{:.9g}", number);
  else
    out += "null";
}

}  // namespace tev::host
