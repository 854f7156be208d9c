// The command line.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/companions.h"

namespace tev::host {

enum class Format { table, jsonl, csv };

// What it takes to set a plug-in up.
struct PluginOptions {
  std::string path;
  bool usual_devices = true;  // neither another plug-in nor another device SDK was asked for
  std::vector<std::pair<std::string, std::string>> options;  // for its dictionary
  bool simulated = false;
  std::string simulator_scenario;  // for the simulator's environment; empty: as that says
  std::uint32_t log_level = 0;
  bool log_level_given = false;
};

// What is written out; nothing: all.
struct SelectionOptions {
  std::optional<std::string> field_set;    // path of a field-set file
  std::optional<std::string> counter_set;  // path of a counter-set file
  std::string filter;                      // filter expression over the names of devices
};

struct RunOptions {
  PluginOptions plugin;
  SelectionOptions selection;
  std::uint64_t buffer_bytes = std::uint64_t{1} << 20;
  std::chrono::milliseconds update{1000};
  std::optional<Format> format;  // nothing: as the output suggests
  std::string output;            // path; empty: standard output
  std::optional<std::chrono::nanoseconds> duration;
  std::optional<std::uint64_t> samples;
  bool jitter = false;  // to be measured
};

enum class Command { run, schema, answered };

struct CommandLine {
  Command command = Command::answered;  // help or version, which have been printed
  RunOptions run;
};

// Throws UsageError.
CommandLine parseCommandLine(int argc, const char* const* argv, const Companions& companions);

}  // namespace tev::host
