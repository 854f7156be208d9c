// The parser of the command line, with the values that it fills in.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "host/cli/command_line.h"
#include "host/cli/given.h"

namespace tev::host {

class Parser {
 public:
  Parser();
  Parser(const Parser&) = delete;
  Parser& operator=(const Parser&) = delete;

  // Words after the program's name. False when the parser has printed an answer (the help or the
  // version). Throws UsageError.
  bool parse(const std::vector<std::string>& words);

  // The command that was given.
  CLI::App& command() { return *app_.get_subcommands().front(); }

  // Whether the option of the command was given.
  bool isGiven(const std::string& name);

  // Interprets the options that depend on each other, and sets the command.
  void readRest();

  // Interprets the options of the plug-in. Each is independent of the others.
  void readPlugin(const Companions& companions);

  CommandLine line;
  Given given;

 private:
  CLI::App app_;
};

}  // namespace tev::host
