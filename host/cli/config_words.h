// What a configuration file adds to a command line.
#pragma once

#include <string>
#include <vector>

#include "host/cli/parser.h"

namespace tev::host {

struct Configured {
  std::vector<std::string> words;  // of the command line
  RunOptions run;                  // what `run` would do with the file alone
};

// The words of the command line with those of its configuration file, which `first` has found. What
// the command line gives takes precedence. The keys are the options of `run`; a command uses those
// that it has, too. Throws UsageError.
Configured withConfig(const std::vector<std::string>& words, Parser& first,
                      const Companions& companions);

}  // namespace tev::host
