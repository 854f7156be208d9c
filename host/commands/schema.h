#pragma once

#include "host/commands/run_options.h"

namespace tev::host {

// tev-host schema: prints the types that the plug-in registers. Returns the exit code; throws
// RunError.
int showSchema(const RunOptions& run);

}  // namespace tev::host
