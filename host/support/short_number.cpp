#include "host/support/short_number.h"

#include <fmt/format.h>

#include <cmath>
#include <cstddef>

namespace tev::host {
namespace {

constexpr char kUnits[] = {'k', 'M', 'G', 'T', 'P', 'E'};

}  // namespace

std::string shortNumber(double number) {
  const double size = std::fabs(number);
  if (!std::isfinite(number)) return fmt::format("{}", number);
  if (size == std::floor(size) && size < 99'999.5) return fmt::format("{:.0f}", number);
  if (size < 0.995) return fmt::format("{:.2f}", number);
  if (size < 99.95) return fmt::format("{:.1f}", number);
  if (size < 99'999.5) return fmt::format("{:.0f}", number);

  double scaled = number / 1000;
  std::size_t unit = 0;
  while (std::fabs(scaled) >= 999.5 && unit + 1 < sizeof kUnits) {
    scaled /= 1000;
    ++unit;
  }
  const double scaled_size = std::fabs(scaled);
  const int digits = scaled_size < 9.995 ? 2 : scaled_size < 99.95 ? 1 : 0;
  return fmt::format("{:.{}f}{}", scaled, digits, kUnits[unit]);
}

}  // namespace tev::host
