#include "host/plugin/option_check.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <numeric>
#include <optional>
#include <string_view>
#include <utility>

#include "host/support/text.h"
#include "src/support/text.h"
#include "tev/dict.h"

namespace tev::host {
namespace {

constexpr char kDevicesKey[] = "multipath-devices";
constexpr std::size_t kNear = 2;  // edits between a key and the one that was meant

char lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string lowerCase(std::string text) {
  std::ranges::transform(text, text.begin(), lower);
  return text;
}

std::vector<std::string> splitAtCommas(std::string_view text) {
  std::vector<std::string> names;
  for (const std::string_view piece : support::split(text, ','))
    if (auto name = string::trim(piece); !name.empty()) names.push_back(std::move(name));
  return names;
}

bool contains(const std::vector<std::string>& names, std::string_view name) {
  return std::ranges::find(names, name) != names.end();
}

// The number of characters to insert, remove or replace to change one text into the other.
std::size_t editDistance(std::string_view from, std::string_view to) {
  std::vector<std::size_t> row(to.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < from.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i + 1;
    for (std::size_t j = 0; j < to.size(); ++j) {
      const std::size_t replaced = diagonal + (from[i] == to[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
    }
  }
  return row.back();
}

// The key in lower case and with '-' for '_', because people confuse these.
std::string folded(const std::string& key) {
  std::string text = lowerCase(key);
  std::ranges::replace(text, '_', '-');
  return text;
}

std::optional<OptionFinding> finding(bool refused, const std::string& key, const std::string& value,
                                     const std::string& sentence) {
  return OptionFinding{refused, asPrintable(key + "=" + value) + ": " + sentence};
}

std::optional<OptionFinding> warning(const OptionInfo& option, const std::string& value,
                                     const std::string& sentence) {
  return finding(false, option.key, value, sentence);
}

std::optional<OptionFinding> checkKey(const std::string& key, const std::string& value,
                                      const OptionTable& table) {
  const std::string given = folded(key);
  const OptionInfo* nearest = nullptr;
  std::size_t edits = kNear + 1;
  for (const OptionInfo& option : table) {
    const std::size_t distance = editDistance(given, folded(option.key));
    if (distance >= edits) continue;
    nearest = &option;
    edits = distance;
  }
  if (!nearest) return std::nullopt;  // the key may be for another part of the host
  return finding(false, key, value,
                 fmt::format("the plug-in does not know this key; did you mean {}?", nearest->key));
}

std::optional<OptionFinding> checkNumber(const OptionInfo& option, const std::string& value) {
  std::string needed = "a whole number";
  if (!option.unit.empty()) needed += " of " + option.unit;
  needed += " is needed";
  if (!option.range.empty()) needed += " (" + option.range + ")";
  const NumberReading reading = readNumber(value);
  switch (reading.text) {
    case NumberText::plain:
      return std::nullopt;
    case NumberText::odd:
      return warning(option, value, fmt::format("read as {}; {}", reading.value, needed));
    case NumberText::not_a_number:
      return finding(true, option.key, value, "not a number; " + needed);
    case NumberText::too_large:
      return finding(true, option.key, value,
                     fmt::format("too large, the most is {}; {}",
                                 std::numeric_limits<std::uint64_t>::max(), needed));
  }
  return std::nullopt;
}

std::optional<OptionFinding> checkBoolean(const OptionInfo& option, const std::string& value) {
  static const std::vector<std::string> kOff = {"", "0", "false", "no", "off"};
  if (tev_string_to_boolean(value.c_str()) || contains(kOff, lowerCase(value))) return std::nullopt;
  return warning(option, value, fmt::format("read as false ({})", option.range));
}

std::optional<OptionFinding> checkWord(const OptionInfo& option, const std::string& value) {
  if (contains(splitAtCommas(option.range), value)) return std::nullopt;
  return warning(option, value, "not one of " + option.range);
}

std::optional<OptionFinding> checkValue(const OptionInfo& option, const std::string& value) {
  switch (option.kind) {
    case TEV_OPTION_NUMBER:
      return checkNumber(option, value);
    case TEV_OPTION_BOOLEAN:
      return checkBoolean(option, value);
    case TEV_OPTION_WORD:
      return checkWord(option, value);
    default:
      return std::nullopt;
  }
}

// If a key is given more than once, the last value is used.
bool isOverridden(const GivenOptions& given, std::size_t index) {
  return std::any_of(given.begin() + static_cast<std::ptrdiff_t>(index) + 1, given.end(),
                     [&](const auto& later) { return later.first == given[index].first; });
}

}  // namespace

std::vector<OptionFinding> checkOptions(const GivenOptions& given, const OptionTable& table) {
  std::vector<OptionFinding> findings;
  for (std::size_t i = 0; i < given.size(); ++i) {
    if (isOverridden(given, i)) continue;
    const auto& [key, value] = given[i];
    const OptionInfo* const option = findOption(table, key);
    if (auto found = option ? checkValue(*option, value) : checkKey(key, value, table))
      findings.push_back(std::move(*found));
  }
  return findings;
}

std::vector<OptionFinding> checkDevices(const GivenOptions& given, const OptionTable& table,
                                        const std::vector<std::string>& sampled) {
  std::vector<OptionFinding> findings;
  if (!findOption(table, kDevicesKey)) return findings;
  for (std::size_t i = 0; i < given.size(); ++i) {
    const auto& [key, value] = given[i];
    if (key != kDevicesKey || isOverridden(given, i)) continue;
    std::vector<std::string> missing = splitAtCommas(value);
    std::erase_if(missing, [&](const std::string& name) { return contains(sampled, name); });
    if (missing.empty()) continue;
    findings.push_back(*finding(false, key, value,
                                fmt::format("not among the sampled devices: {}; sampled are: {}",
                                            commaSeparated(missing), commaSeparated(sampled))));
  }
  return findings;
}

}  // namespace tev::host
