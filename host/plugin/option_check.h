// Compares the options that the user gave with the options that the plug-in describes.
#pragma once

#include <string>
#include <vector>

#include "host/plugin/option_table.h"

namespace tev::host {

struct OptionFinding {
  bool refused;      // the plug-in cannot be set up with it; otherwise a warning
  std::string text;  // one sentence: the option, its value, the possible values
};

// The findings before the set-up; empty for a table without options.
std::vector<OptionFinding> checkOptions(const GivenOptions& given, const OptionTable& table);

// The findings after the set-up, when the names of the sampled devices are known.
std::vector<OptionFinding> checkDevices(const GivenOptions& given, const OptionTable& table,
                                        const std::vector<std::string>& sampled);

}  // namespace tev::host
