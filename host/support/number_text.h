// Reads numbers.
#pragma once

#include <charconv>
#include <optional>
#include <string_view>

namespace tev::host {

// The number when it is the whole text, without a plus sign and blanks; nothing for other texts and
// for numbers that the type does not have.
template <class Number>
std::optional<Number> parseNumber(std::string_view text, int base = 10) {
  Number number{};
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number, base);
  if (error != std::errc() || rest != end) return std::nullopt;
  return number;
}

}  // namespace tev::host
