#pragma once

#include "host/commands/decode.h"
#include "host/commands/run_options.h"

namespace tev::host {

// Shows capture files on the full screen, in their own time. Returns the exit code: 1 when a part
// of a file is damaged. Throws UsageError and RunError.
int play(const RunOptions& options, const DecodeOptions& decode);

}  // namespace tev::host
