#include <fmt/format.h>

#include "packaging/describe/completion.h"

namespace tev::describe {
namespace {

constexpr char kBegin[] = R"(# Completion of tev-host for bash.
_tev_host() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  local options='' values='' files=''
  # "--format=csv" is three words.
  if [[ $current == = ]]; then
    current=
  elif [[ $previous == = ]]; then
    previous=${COMP_WORDS[COMP_CWORD - 2]}
  fi
  case $((COMP_CWORD > 1)):${COMP_WORDS[1]} in
)";

constexpr char kEnd[] = R"(  esac
  if [[ $current == -* ]]; then
    values=$options
    files=
  fi
  mapfile -t COMPREPLY < <(
    compgen -W "$values" -- "$current"
    [[ -z $files ]] || compgen -f -- "$current"
  )
  [[ -z $files ]] || compopt -o filenames 2>/dev/null
}
complete -F _tev_host tev-host
)";

std::string joined(const std::vector<std::string>& words) {
  return fmt::format("{}", fmt::join(words, " "));
}

// What may follow an option.
std::string valueCase(const OptionText& option, const std::vector<std::string>& keys) {
  if (option.name == "--option") {
    std::vector<std::string> words;
    for (const std::string& key : keys) words.push_back(key + "=");
    return fmt::format("    --option) values='{}'; compopt -o nospace 2>/dev/null ;;\n",
                       joined(words));
  }
  return fmt::format("    {}) values='{}' files={} ;;\n", option.name, joined(option.values),
                     option.takesFile() ? "yes" : "");
}

}  // namespace

std::string bashCompletion(const ProgramText& text, const std::vector<std::string>& keys) {
  std::string out = kBegin;
  for (const CommandText& command : text.commands) {
    std::string options;
    std::string cases;
    bool has_operand = false;
    for (const OptionText& option : command.options) {
      has_operand = has_operand || option.is_operand;
      if (option.is_operand) continue;
      options += (options.empty() ? "" : " ") + option.name;
      if (!option.value.empty()) cases += valueCase(option, keys);
    }
    out += fmt::format(
        "  1:{})\n    options='{}'\n    case $previous in\n{}    *) files={} ;;\n    esac\n    "
        ";;\n",
        command.name, options, cases, has_operand ? "yes" : "");
  }
  std::vector<std::string> words;
  for (const OptionText& option : text.program.options) words.push_back(option.name);
  out += fmt::format("  0:*)\n    options='{}'\n", joined(words));
  words.clear();
  for (const CommandText& command : text.commands) words.push_back(command.name);
  return out + fmt::format("    values='{}'\n    ;;\n", joined(words)) + kEnd;
}

}  // namespace tev::describe
