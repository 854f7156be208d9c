#include "src/support/text.h"

namespace tev::string {

std::string trim(std::string_view text) {
  return std::string(support::trimView(text, " \t\n\r\f\v"));
}

}  // namespace tev::string

namespace tev::support {

std::string_view trimView(std::string_view text, std::string_view characters) {
  const auto first = text.find_first_not_of(characters);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(characters) - first + 1);
}

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> pieces;
  for (;;) {
    const auto end = text.find(separator);
    pieces.push_back(text.substr(0, end));
    if (end == std::string_view::npos) return pieces;
    text.remove_prefix(end + 1);
  }
}

}  // namespace tev::support
