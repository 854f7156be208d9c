#include "host/figures/fast_counters.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "host/support/duration_text.h"
#include "host/support/short_number.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

constexpr double kSafeShare = 0.25;
constexpr std::uint64_t kAmbiguousSteps = 2;  // one of them may be a reset

double rangeOf(const Track& track) {
  return 2 * static_cast<double>(track.halfRange());
}

bool isTooFast(const Track& track) {
  if (track.kind() == FieldKind::gauge || track.kind() == FieldKind::increase) return false;
  return track.ambiguousSteps() >= kAmbiguousSteps ||
         static_cast<double>(track.largestStep()) > kSafeShare * rangeOf(track);
}

std::string nameOf(const Series& series) {
  std::string name = series.device;
  for (std::size_t i = 0; i < series.keys.size(); ++i)
    name += ", " + asPrintable(series.type->keys[i + 1].name) + " " + series.keys[i];
  return name;
}

void add(FastCounter& counter, const Track& track) {
  if (track.ambiguousSteps() >= kAmbiguousSteps) {
    counter.share = std::max(counter.share, 0.5);
    counter.safe_interval.reset();
    return;
  }
  counter.share =
      std::max(counter.share, static_cast<double>(track.largestStep()) / rangeOf(track));
  counter.per_second = std::max(counter.per_second, track.highestPerSecond());
  if (counter.share < 0.5)
    counter.safe_interval = longestSafeInterval(track.bits(), counter.per_second);
}

}  // namespace

std::vector<FastCounter> fastCounters(const Figures& figures) {
  std::vector<FastCounter> all;
  std::map<const Column*, std::size_t> index_of;
  for (const SeriesFigures& one : figures.all()) {
    if (!one.series) continue;
    for (std::size_t i = 0; i < one.tracks.size(); ++i) {
      if (!isTooFast(one.tracks[i])) continue;
      const Column* const column = figures.columns(*one.series->type)[i];
      const auto [found, is_new] = index_of.emplace(column, all.size());
      if (is_new)
        all.push_back({asPrintable(column->name), nameOf(*one.series), 0, 0, std::nullopt});
      add(all[found->second], one.tracks[i]);
    }
  }
  return all;
}

std::string describe(const FastCounter& counter) {
  if (!counter.safe_interval)
    return fmt::format(
        "{} of {} moves by half of its range or more per sample, so its rate is not known: lower "
        "multipath-sample-interval-usec",
        counter.name, counter.series);
  return fmt::format(
      "{} of {} moves by {:.0f} % of its range per sample ({}/s): the longest interval that "
      "follows "
      "it safely is {}",
      counter.name, counter.series, 100 * counter.share, shortNumber(counter.per_second),
      durationText(*counter.safe_interval));
}

}  // namespace tev::host
