#include "host/support/stderr_text.h"

#include <fmt/format.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>

#include "host/support/bounded_write.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

constexpr std::chrono::milliseconds kPatience{1000};

std::atomic<std::uint64_t> left_out{0};  // texts since the last one that was written

}  // namespace

void showOnStderr(std::string_view lines) {
  const std::uint64_t missing = left_out;
  std::string text = printableLines(lines);
  if (missing > 0)
    text.insert(0, fmt::format("tev-host: {} texts are left out here, because standard error was "
                               "not read\n",
                               missing));
  // Only the first of several texts waits for the reader.
  const auto patience = missing > 0 ? std::chrono::milliseconds::zero() : kPatience;
  if (writeAll(STDERR_FILENO, text, patience) == text.size())
    left_out -= missing;
  else
    ++left_out;
}

}  // namespace tev::host
