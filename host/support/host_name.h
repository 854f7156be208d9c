#pragma once

#include <string>

namespace tev::host {

// The name of this machine; empty when the system does not tell it.
std::string hostName();

}  // namespace tev::host
