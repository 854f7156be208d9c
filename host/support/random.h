#pragma once

#include <cstdint>

namespace tev::host {

// 64 random bits of the system. Throws RunError.
std::uint64_t randomNumber();

}  // namespace tev::host
