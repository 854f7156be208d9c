#include "host/figures/fast_counters.h"

#include <fmt/format.h>

#include <map>
#include <utility>

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

// The row of one series.
FastCounter rowOf(const Column& column, const Series& series, const Track& track) {
  FastCounter row{asPrintable(column.name), nameOf(series), 0.5, 0, std::nullopt};
  if (track.ambiguousSteps() >= kAmbiguousSteps) return row;
  row.share = static_cast<double>(track.largestStep()) / rangeOf(track);
  row.per_second = track.highestPerSecond();
  if (row.per_second > 0) row.safe_interval = longestSafeInterval(track.bits(), row.per_second);
  return row;
}

}  // namespace

std::vector<FastCounter> fastCounters(const Figures& figures) {
  std::vector<FastCounter> all;
  std::map<const Column*, std::size_t> index_of;
  for (const SeriesFigures& one : figures.all()) {
    if (!one.series) continue;
    for (std::size_t i = 0; i < one.tracks.size(); ++i) {
      if (!isTooFast(one.tracks[i])) continue;
      const Column& column = *figures.columns(*one.series->type)[i];
      FastCounter row = rowOf(column, *one.series, one.tracks[i]);
      const auto [found, is_new] = index_of.emplace(&column, all.size());
      if (is_new)
        all.push_back(std::move(row));
      else if (row.share > all[found->second].share)
        all[found->second] = std::move(row);
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
