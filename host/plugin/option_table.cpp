#include "host/plugin/option_table.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <string_view>

#include "src/support/text.h"

namespace tev::host {
namespace {

constexpr std::string_view kBlanks = " \t\n\v\f\r";
constexpr std::string_view kDigits = "0123456789";

std::string textOf(const char* text) {
  return text ? text : "";
}

// Whether the text is digits. A plus sign before them and blanks around them are allowed.
bool isPlain(std::string_view text) {
  text = support::trimView(text, kBlanks);
  if (text.starts_with('+')) text.remove_prefix(1);
  return text.find_first_not_of(kDigits) == std::string_view::npos;
}

// The text that the plug-in uses: the last one given, or the default. Null when there is neither.
const std::string* usedText(const GivenOptions& given, const OptionTable& table,
                            const std::string& key) {
  const OptionInfo* const info = findOption(table, key);
  const std::string* text = info ? &info->default_value : nullptr;
  for (const auto& [name, value] : given)
    if (name == key) text = &value;
  return text;
}

}  // namespace

OptionTable readOptionTable(tev_multipath_get_option_t get_option) {
  OptionTable table;
  tev_multipath_option_t option{};
  while (get_option && get_option(static_cast<std::uint32_t>(table.size()), &option, sizeof option))
    table.push_back({textOf(option.key), option.kind, textOf(option.unit),
                     textOf(option.default_value), textOf(option.range), textOf(option.meaning)});
  return table;
}

const OptionInfo* findOption(const OptionTable& table, const std::string& key) {
  const auto found = std::ranges::find(table, key, &OptionInfo::key);
  return found == table.end() ? nullptr : &*found;
}

NumberReading readNumber(const std::string& text) {
  char* end = nullptr;
  errno = 0;
  const std::uint64_t value = std::strtoull(text.c_str(), &end, 10);
  if (end == text.c_str()) return {NumberText::not_a_number, 0};
  if (errno == ERANGE) return {NumberText::too_large, 0};
  return {isPlain(text) ? NumberText::plain : NumberText::odd, value};
}

std::optional<std::uint64_t> numberOption(const GivenOptions& given, const OptionTable& table,
                                          const std::string& key) {
  const std::string* const text = usedText(given, table, key);
  if (!text) return std::nullopt;
  const NumberReading reading = readNumber(*text);
  const bool refused =
      reading.text == NumberText::not_a_number || reading.text == NumberText::too_large;
  return refused ? std::nullopt : std::optional(reading.value);
}

bool booleanOption(const GivenOptions& given, const OptionTable& table, const std::string& key) {
  const std::string* const text = usedText(given, table, key);
  return text && tev_string_to_boolean(text->c_str());
}

}  // namespace tev::host
