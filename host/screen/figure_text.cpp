#include "host/screen/figure_text.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/support/short_number.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

Piece pieceOf(std::optional<double> amount, bool is_unknown, bool is_uncertain) {
  if (is_unknown) return {"?", Role::uncertain};
  if (!amount) return {"", Role::quiet};
  if (is_uncertain) return {"~" + shortNumber(*amount), Role::uncertain};
  return {shortNumber(*amount), *amount == 0 ? Role::quiet : Role::normal};
}

}  // namespace

Piece pieceOf(const Reading& reading) {
  if (reading.counts())
    return pieceOf(reading.per_second, reading.has_unknown, reading.is_uncertain);
  const auto value = static_cast<double>(reading.value);
  if (reading.kind == FieldKind::undecided && reading.has_moved) return {"", Role::quiet};
  return pieceOf(value, false, false);
}

Piece pieceOf(const std::optional<DeviceFigure>& figure) {
  if (!figure) return {"", Role::quiet};
  return pieceOf(figure->amount, figure->has_unknown && !figure->amount, figure->is_uncertain);
}

std::string elapsedText(std::uint64_t usec) {
  constexpr std::uint64_t kSecond = 1'000'000;
  constexpr std::uint64_t kMinute = 60 * kSecond;
  if (usec < 100 * kSecond) return fmt::format("{} s", usec / kSecond);
  if (usec < 100 * kMinute) return fmt::format("{} min", usec / kMinute);
  return fmt::format("{} h", usec / (60 * kMinute));
}

std::string sentenceOf(const DeviceModel& device, std::uint64_t now_usec,
                       const std::string& times) {
  const auto since = [now_usec](std::uint64_t usec) {
    return elapsedText(now_usec - std::min(now_usec, usec));
  };
  if (device.health.state != DeviceState::sampling) {
    const std::string& failure = device.health.counts.last_failure;
    return fmt::format("{}: {} for {}{}{}; {}", device.name, nameOf(device.health.state),
                       since(device.health.since_usec), failure.empty() ? "" : ": ",
                       asPrintable(failure),
                       device.health.last_sample_usec == 0
                           ? "no sample yet"
                           : fmt::format("last sample {} ago", since(device.health.arrived_usec)));
  }
  if (!device.worst) return "";
  const WorstPlane& worst = *device.worst;
  const std::string field = asPrintable(worst.field);
  const std::string what = worst.kind == FieldKind::gauge
                               ? fmt::format("the highest {}", field)
                               : fmt::format("{:.0f} % of {}", 100 * worst.share, field);
  return fmt::format("{}: {} has {}, {}{:.1f} of the mean, for {}", device.name, worst.plane, what,
                     times, worst.imbalance, since(worst.since_usec));
}

Role roleOf(DeviceState state) {
  switch (state) {
    case DeviceState::sampling:
      return Role::good;
    case DeviceState::waiting:
      return Role::warning;
    case DeviceState::failing:
    case DeviceState::silent:
      return Role::bad;
  }
  return Role::normal;
}

}  // namespace tev::host
