#pragma once

#include <cstddef>

namespace tev::support {

// Two threads that write within the same block of this size, in bytes, slow each other down.
inline constexpr std::size_t kCacheLine = 64;

}  // namespace tev::support
