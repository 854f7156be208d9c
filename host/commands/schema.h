#pragma once

#include "host/plugin/plugin_options.h"

namespace tev::host {

// tev-host schema: prints the types that the plug-in registers. Returns the exit code; throws
// RunError.
int showSchema(const PluginOptions& options);

}  // namespace tev::host
