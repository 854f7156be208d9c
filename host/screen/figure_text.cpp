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
  if (reading.kind == FieldKind::undecided && reading.has_moved) return {"..", Role::uncertain};
  return pieceOf(static_cast<double>(reading.value), false, false);
}

Piece pieceOf(const std::optional<DeviceFigure>& figure) {
  if (!figure) return {"..", Role::uncertain};
  return pieceOf(figure->amount, figure->has_unknown && !figure->amount, figure->is_uncertain);
}

std::string elapsedText(std::uint64_t usec) {
  const std::uint64_t seconds = usec / 1'000'000;
  if (seconds < 100) return fmt::format("{} s", seconds);
  if (seconds < 3600) return fmt::format("{}:{:02} min", seconds / 60, seconds % 60);
  return fmt::format("{}:{:02} h", seconds / 3600, seconds / 60 % 60);
}

std::string elapsedText(const ScreenModel& model, const WorstPlane& worst) {
  const std::uint64_t since = worst.field->prominence.since_usec;
  return elapsedText(model.now_usec - std::min(model.now_usec, since));
}

std::string shortName(const std::string& name, std::size_t width) {
  const std::size_t length = displayWidth(name);
  if (length <= width || width < 4) return padRight(name, std::min(length, width));
  std::string tail = name;
  for (std::size_t left = length; left > width / 2; --left) tail.erase(0, utf8Length(tail));
  return padRight(name, width - width / 2) + tail;
}

std::string sentenceOf(const ScreenModel& model, const DeviceEntry& entry,
                       const std::string& times) {
  const DeviceModel& device = *entry.device;
  const auto since = [&model](std::uint64_t usec) {
    return elapsedText(model.now_usec - std::min(model.now_usec, usec));
  };
  if (!device.isSampling()) {
    const std::string& failure = device.health.counts.last_failure;
    return fmt::format("{}: {} for {}{}{}; {}", device.shownName(), nameOf(device.health.state),
                       since(device.health.since_usec), failure.empty() ? "" : ": ",
                       asPrintable(failure),
                       device.health.last_sample_usec == 0
                           ? "no sample yet"
                           : fmt::format("last sample {} ago", since(device.health.arrived_usec)));
  }
  if (!entry.worst) return "";
  const Comparison& comparison = *entry.worst->comparison;
  const std::string& field = model.names[entry.worst->field->number];
  const std::string what = comparison.kind == FieldKind::gauge
                               ? fmt::format("the highest {}", field)
                               : fmt::format("{:.0f} % of {}", 100 * entry.worst->share(), field);
  return fmt::format("{}: {} has {}, {}{:.1f} of the mean, for {}", device.shownName(),
                     headingOf(entry.worst->plane()), what, times, comparison.imbalance,
                     elapsedText(model, *entry.worst));
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
