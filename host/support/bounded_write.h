// Writes that do not wait for ever for the reader of a pipe or a terminal.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <string_view>

namespace tev::host {

// As much as a pipe that is ready takes without blocking.
extern const std::size_t kMaxWrite;

// Both functions are async-signal-safe.

// Waits until the descriptor is ready, and writes at most kMaxWrite bytes. Returns their number; 0
// when the descriptor was not ready in time or a signal arrived; -1 with errno after an error.
ssize_t writeSome(int descriptor, std::string_view text,
                  std::chrono::milliseconds patience) noexcept;

// Writes all of the text. Ends after an error, and when the descriptor was not ready for `patience`
// since the last bytes. Returns the number of bytes that were written.
std::size_t writeAll(int descriptor, std::string_view text,
                     std::chrono::milliseconds patience) noexcept;

}  // namespace tev::host
