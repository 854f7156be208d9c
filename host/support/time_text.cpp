#include "host/support/time_text.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <ctime>

namespace tev::host {

std::string timeText(std::uint64_t usec) {
  const auto seconds = static_cast<std::time_t>(usec / 1'000'000);
  return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:06}Z", fmt::gmtime(seconds), usec % 1'000'000);
}

}  // namespace tev::host
