#pragma once

#include "host/commands/run_options.h"

namespace tev::host {

// tev-host run: samples until the end, and writes the events. Returns the exit code. Throws
// UsageError and RunError.
int run(const RunOptions& options);

}  // namespace tev::host
