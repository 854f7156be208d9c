#pragma once

#include <optional>
#include <string>

namespace tev::sources {

// The identity of this machine in its events: TEV_SOURCE_ID, or else TEV_HOST_NAME, or else the
// host name up to its first dot. Nothing, with an error logged, when the host name cannot be read.
std::optional<std::string> defaultIdentity();

}  // namespace tev::sources
