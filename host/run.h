#pragma once

#include "host/run_options.h"

namespace tev::host {

// tev-host run: samples until the end, and writes out what comes. Returns the exit code; throws
// UsageError and RunError.
int run(const RunOptions& options);

}  // namespace tev::host
