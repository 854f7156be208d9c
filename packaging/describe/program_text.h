// The program's commands and options as texts, from the description that its parser uses.
#pragma once

#include <string>
#include <vector>

namespace tev::describe {

struct OptionText {
  std::string name;                 // "--format"; of an operand: "FILE"
  std::string short_name;           // "-h", or empty
  std::string value;                // "FORMAT"; empty: takes none. "[=SCENARIO]": may have one
  std::string meaning;              // may have several lines
  std::vector<std::string> values;  // that are usual
  bool is_operand = false;
  bool is_required = false;
  bool is_repeated = false;

  bool takesFile() const;
  bool takesOptionalValue() const { return value.starts_with('['); }
};

struct CommandText {
  std::string name;
  std::string summary;  // begins with a capital letter
  std::vector<OptionText> options;

  const OptionText* option(const std::string& name) const;  // null: there is none
};

struct ProgramText {
  CommandText program;
  std::vector<CommandText> commands;
};

ProgramText describeProgram();

}  // namespace tev::describe
