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
  bool usual_devices = true;  // neither another plug-in nor another device SDK was asked for
  GivenOptions options;
  bool simulated = false;
  std::string simulator_scenario;  // for the simulator's environment; empty: that stays as it is
  std::uint32_t log_level = 0;
  bool log_level_given = false;
};

}  // namespace tev::host
