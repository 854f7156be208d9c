#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace tev::host {

// Keys and values for a plug-in's dictionary. If a key is given twice, the last value is used.
using GivenOptions = std::vector<std::pair<std::string, std::string>>;

// The settings for the set-up of a plug-in.
struct PluginOptions {
  std::string path;
  bool usual_devices = true;  // the user did not choose another plug-in or another device SDK
  GivenOptions options;
  bool simulated = false;
  std::string simulator_scenario;  // for the environment; empty: the variable is not changed
  std::uint32_t log_level = 0;
  bool log_level_given = false;
};

}  // namespace tev::host
