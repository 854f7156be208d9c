#pragma once

#include <chrono>
#include <optional>

#include "host/commands/run_options.h"

namespace tev::host {

struct CheckOptions {
  bool json = false;
  std::optional<std::chrono::nanoseconds> measure;  // for how long
};

// tev-host check: sets the plug-in up, and prints what a run with the same options would sample.
// Returns the exit code: kExitFailed when the run would not work. Throws RunError when the output
// cannot be written.
int check(const RunOptions& run, const CheckOptions& options);

}  // namespace tev::host
