#pragma once

#include <cstdint>
#include <string>

namespace tev::host {

// "2026-01-31T12:00:00.000001Z", from microseconds since the Unix epoch.
std::string timeText(std::uint64_t usec);

}  // namespace tev::host
