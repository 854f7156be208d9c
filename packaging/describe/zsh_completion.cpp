#include <fmt/format.h>

#include <string_view>

#include "packaging/describe/completion.h"

namespace tev::describe {
namespace {

// The beginning of a text, without the characters that have a meaning in the description of an
// argument.
std::string brief(std::string_view text) {
  std::string out;
  for (const char one : text.substr(0, text.find_first_of("\n:;([")))
    out += one == '\'' ? std::string("'\\''") : std::string(1, one);
  while (out.ends_with(' ')) out.pop_back();
  return out;
}

std::string action(const OptionText& option, const std::vector<std::string>& keys) {
  if (option.name == "--option")
    return fmt::format("{{compadd -S \"\" -- {}=}}", fmt::join(keys, "= "));
  const std::string values = fmt::format("({})", fmt::join(option.values, " "));
  if (!option.takesFile()) return option.values.empty() ? " " : values;
  if (option.values.empty()) return "_files";
  return fmt::format("{{_alternative \"values:value:{}\" \"files:file:_files\"}}", values);
}

std::string argument(const OptionText& option, const std::vector<std::string>& keys) {
  if (option.is_operand) return fmt::format("'*:{}:_files'", option.name);
  const std::string head = option.is_repeated ? "*" + option.name : option.name;
  const std::string meaning = brief(option.meaning);
  if (option.value.empty()) return fmt::format("'{}[{}]'", head, meaning);
  return fmt::format("'{}={}[{}]{}:{}:{}'", head, option.takesOptionalValue() ? "-" : "", meaning,
                     option.takesOptionalValue() ? ":" : "",
                     option.takesOptionalValue() ? "value" : option.value, action(option, keys));
}

std::string arguments(const CommandText& command, const std::vector<std::string>& keys,
                      const char* indent) {
  std::string out = std::string(indent) + "_arguments";
  for (const OptionText& option : command.options)
    out += fmt::format(" \\\n{}  {}", indent, argument(option, keys));
  return out;
}

}  // namespace

std::string zshCompletion(const ProgramText& text, const std::vector<std::string>& keys) {
  std::string out =
      "#compdef tev-host\n# Completion of tev-host for zsh.\n"
      "_tev_host() {\n  local curcontext=$curcontext state line\n  local -a commands=(\n";
  for (const CommandText& command : text.commands)
    out += fmt::format("    '{}:{}'\n", command.name, brief(command.summary));
  CommandText program = text.program;
  out += "  )\n" + arguments(program, keys, "  ") +
         " \\\n    '1:command:{_describe command commands}' '*::argument:->argument' && return\n"
         "  [[ $state == argument ]] || return 1\n  case $words[1] in\n";
  for (const CommandText& command : text.commands)
    out += fmt::format("  {})\n{}\n    ;;\n", command.name, arguments(command, keys, "    "));
  return out + "  esac\n}\n_tev_host \"$@\"\n";
}

}  // namespace tev::describe
