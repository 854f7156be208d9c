#pragma once

#include <string>

namespace tev::host {

// The version, and which optional parts this build has and lacks.
std::string versionText();

}  // namespace tev::host
