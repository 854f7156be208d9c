#pragma once

#include <string>
#include <vector>

#include "host/capture/capture_source.h"
#include "host/commands/run_options.h"

namespace tev::host {

struct DecodeOptions {
  std::vector<std::string> files;
  TimeSpan span;
  double speed = 1;  // of a playback
};

// Writes the events of capture files in the chosen format. Returns the exit code: 1 when a part of
// a file is damaged. Throws UsageError and RunError.
int decode(const RunOptions& options, const DecodeOptions& decode);

}  // namespace tev::host
