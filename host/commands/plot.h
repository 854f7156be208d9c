#pragma once

#include <cstdint>
#include <string>

#include "host/commands/decode.h"
#include "host/commands/run_options.h"

namespace tev::host {

struct PlotOptions {
  std::string title;                                   // empty: the files' names
  std::uint64_t most_bytes = std::uint64_t{32} << 20;  // of the page
};

// Writes the samples of capture files as a page. Returns the exit code: 1 when a part of a file is
// damaged. Throws UsageError and RunError.
int plot(const RunOptions& options, const DecodeOptions& decode, const PlotOptions& plot);

}  // namespace tev::host
