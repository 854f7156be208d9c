#pragma once

#include <cstdint>
#include <string>

#include "host/figures/health.h"

namespace tev::host {

// Appends a JSON object per line: of type "missing_samples" for what the last update found missing,
// and of type "device_state" for each device that changed its state, except from waiting to
// sampling.
void appendHealthLines(std::string& out, const HealthWatch& health, std::uint64_t now_usec);

}  // namespace tev::host
