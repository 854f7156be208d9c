#include "packaging/describe/program_text.h"

#include <algorithm>

#include "host/cli/add_option.h"
#include "host/cli/commands.h"

namespace tev::describe {
namespace {

OptionText textOf(CLI::Option& option) {
  OptionText text;
  text.is_operand = option.get_positional();
  text.name = text.is_operand ? option.get_name(true) : "--" + option.get_lnames().at(0);
  if (!option.get_snames().empty()) text.short_name = "-" + option.get_snames().front();
  if (option.get_expected_max() > 0) text.value = option.get_type_name();
  text.meaning = option.get_description();
  text.values = tev::host::offeredValues(option);
  text.is_required = option.get_required();
  text.is_repeated = option.get_items_expected_max() > 1 ||
                     option.get_multi_option_policy() == CLI::MultiOptionPolicy::TakeAll;
  return text;
}

CommandText textOf(CLI::App& app) {
  CommandText text{app.get_name(), app.get_description(), {}};
  for (CLI::Option* const option : app.get_options({})) text.options.push_back(textOf(*option));
  return text;
}

}  // namespace

bool OptionText::takesFile() const {
  return is_operand || value == "FILE" || value == "PATH" || name == "--simulate";
}

const OptionText* CommandText::option(const std::string& wanted) const {
  const auto found = std::ranges::find(options, wanted, &OptionText::name);
  return found == options.end() ? nullptr : &*found;
}

ProgramText describeProgram() {
  CLI::App app;
  tev::host::CommandLine line;
  tev::host::Given given;
  tev::host::describeProgram(app, line, given);
  ProgramText text{textOf(app), {}};
  for (CLI::App* const command : app.get_subcommands({})) text.commands.push_back(textOf(*command));
  return text;
}

}  // namespace tev::describe
