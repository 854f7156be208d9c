// Adds single options to a command.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace tev::host {

// Adds an option. `read` converts its text to its value.
template <class Value, class Read>
CLI::Option* addParsed(CLI::App& command, const char* name, Value& value, Read read,
                       const std::string& description) {
  return command.add_option_function<std::string>(
      name, [&value, read, name](const std::string& text) { value = read(name, text); },
      description);
}

// Adds an option that may be given several times.
inline CLI::Option* addRepeated(CLI::App& command, const char* name,
                                std::vector<std::string>& values, const std::string& description) {
  return command.add_option(name, values, description)
      ->expected(1)
      ->allow_extra_args(false)
      ->take_all();
}

// Notes the texts that completion offers as values of an option. The parser does not use them: each
// is the name of a validator that is never active.
inline CLI::Option* offer(CLI::Option* option, const std::vector<std::string>& values) {
  for (const std::string& value : values)
    option->check(
        CLI::Validator([](std::string&) { return std::string(); }, "", value).active(false));
  return option;
}

inline std::vector<std::string> offeredValues(CLI::Option& option) {
  std::vector<std::string> values;
  try {
    for (int i = 0;; ++i) values.push_back(option.get_validator(i)->get_name());
  } catch (const CLI::OptionNotFound&) {  // behind the last one
    return values;
  }
}

}  // namespace tev::host
