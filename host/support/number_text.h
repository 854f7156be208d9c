// Reads numbers.
#pragma once

#include <charconv>
#include <optional>
#include <string_view>

namespace tev::host {

// The number when it is the whole text, without a plus sign and blanks; nothing for other texts and
// for numbers that the type does not have. `base` is that of a whole number; without it, 10.
template <class Number, class... Base>
std::optional<Number> parseNumber(std::string_view text, Base... base) {
  Number number{};
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number, base...);
  if (error != std::errc() || rest != end) return std::nullopt;
  return number;
}

}  // namespace tev::host
