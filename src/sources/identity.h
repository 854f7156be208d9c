#pragma once

#include <optional>
#include <string>

namespace tev::sources {

// What this machine calls itself in its events: TEV_SOURCE_ID, else TEV_HOST_NAME, else the host
// name up to its first dot. Nothing, with an error logged, when there is no host name to be had.
std::optional<std::string> defaultIdentity();

}  // namespace tev::sources
