// The options that a plug-in describes, and how it reads their texts.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/plugin/plugin_options.h"
#include "tev/event_provider.h"

namespace tev::host {

struct OptionInfo {
  std::string key;
  std::uint32_t kind = TEV_OPTION_PATH;  // TEV_OPTION_...
  std::string unit;
  std::string default_value;
  std::string range;
  std::string meaning;
};

// In the plug-in's order. Empty when the plug-in does not describe its options.
using OptionTable = std::vector<OptionInfo>;

// `get_option` may be null.
OptionTable readOptionTable(tev_multipath_get_option_t get_option);

// Null when the table does not have the key.
const OptionInfo* findOption(const OptionTable& table, const std::string& key);

enum class NumberText {
  plain,         // has the value that a person expects
  odd,           // has a minus sign or further text, so its value may not be the expected one
  not_a_number,  // refused: it does not begin with digits
  too_large,     // refused: more than 64 bits
};

struct NumberReading {
  NumberText text;
  std::uint64_t value;  // 0 when refused
};

// Reads a number as the plug-in does: leading blanks, a sign and digits. The rest is ignored.
NumberReading readNumber(const std::string& text);

// The value that the plug-in uses for a number option: the given one or the default. Nothing when
// the plug-in refuses the text, or when the option is neither given nor in the table.
std::optional<std::uint64_t> numberOption(const GivenOptions& given, const OptionTable& table,
                                          const std::string& key);

// The value that the plug-in uses for a boolean option. False when the option is neither given nor
// in the table.
bool booleanOption(const GivenOptions& given, const OptionTable& table, const std::string& key);

}  // namespace tev::host
