#pragma once

#include <string>
#include <vector>

namespace tev::host {

// Describes capture files. Returns the exit code: 1 when a part of a file is damaged. Throws
// RunError.
int showInfo(const std::vector<std::string>& files);

}  // namespace tev::host
