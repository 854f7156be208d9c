#include "packaging/describe/roff.h"

namespace tev::describe {

std::string roff(std::string_view text) {
  std::string out;
  bool is_line_start = true;
  for (const char one : text) {
    if (is_line_start && (one == '.' || one == '\'')) out += "\\&";
    is_line_start = one == '\n';
    if (one == '\\')
      out += "\\e";
    else if (one == '-')
      out += "\\-";
    else if (one == '^' || one == '~')
      out += one == '^' ? "\\(ha" : "\\(ti";
    else if (one == '\'')
      out += "\\(aq";
    else
      out += one;
  }
  return out;
}

std::string bold(std::string_view text) {
  return "\\fB" + roff(text) + "\\fR";
}

std::string italic(std::string_view text) {
  return "\\fI" + roff(text) + "\\fR";
}

std::string prose(std::string_view text) {
  constexpr std::string_view kNameCharacters = "abcdefghijklmnopqrstuvwxyz-";
  std::string out;
  while (!text.empty()) {
    const std::size_t start = std::min(text.find("--"), text.size());
    out += roff(text.substr(0, start));
    text.remove_prefix(start);
    const std::size_t length = std::min(text.find_first_not_of(kNameCharacters), text.size());
    if (length > 0) out += bold(text.substr(0, length));
    text.remove_prefix(length);
  }
  return out;
}

}  // namespace tev::describe
