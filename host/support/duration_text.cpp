#include "host/support/duration_text.h"

#include <fmt/format.h>

namespace tev::host {

std::string durationText(std::chrono::duration<double> time) {
  const double seconds = time.count();
  if (seconds >= 0.9995) {
    return seconds >= 999.5 ? fmt::format("{:.0f} s", seconds) : fmt::format("{:.3g} s", seconds);
  }
  if (seconds >= 0.9995e-3) return fmt::format("{:.3g} ms", seconds * 1e3);
  return fmt::format("{:.3g} us", seconds * 1e6);
}

}  // namespace tev::host
