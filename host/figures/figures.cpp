#include "host/figures/figures.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <utility>

#include "host/events/byte_counters.h"
#include "host/events/values.h"
#include "host/support/errors.h"
#include "host/support/log.h"
#include "host/support/text.h"
#include "tev/counter_set.h"
#include "tev/schema.h"

namespace tev::host {
namespace {

// The patterns of one option and of the corresponding tag.
class Patterns {
 public:
  Patterns(const char* option, const std::vector<std::string>& given,
           const std::vector<std::string>& tagged)
      : option_(option) {
    for (const std::string& pattern : given) patterns_.push_back({pattern, false, false});
    for (const std::string& pattern : tagged) patterns_.push_back({pattern, true, false});
    set_.loadFromLines({"^"});
  }

  // A field is known by its own name and by the alias under which it is written.
  bool match(const std::string& name, const std::string& alias) {
    bool any = false;
    for (auto& [pattern, is_tag, matched] : patterns_) {
      if (!set_.shouldIncludeCounter(name, pattern) && !set_.shouldIncludeCounter(alias, pattern))
        continue;
      any = matched = true;
    }
    return any;
  }

  // A tag may also name counters that this plug-in does not have.
  void expectAllMatched(const std::vector<std::string>& names) const {
    for (const auto& [pattern, is_tag, matched] : patterns_) {
      if (matched) continue;
      if (!is_tag)
        throw UsageError(fmt::format("{} {}: no field matches\n  The fields are: {}", option_,
                                     asPrintable(pattern), commaSeparated(names)));
      Log::instance().say(
          fmt::format("tev-host: --cset: {} in a tag: no field matches", asPrintable(pattern)));
    }
  }

 private:
  struct Pattern {
    std::string text;
    bool is_tag;
    bool matched;
  };

  const char* option_;
  std::vector<Pattern> patterns_;
  ProviderCounterSet set_;  // compares names with patterns
};

}  // namespace

FieldKind declaredKind(const Column& column, const CountingOptions& options) {
  if (column.counting_mode == TEV_VALUE_DELTA || options.clear_on_read) return FieldKind::increase;
  return column.counting_mode == TEV_VALUE_RUNNING_SUM ? FieldKind::counter : FieldKind::undecided;
}

Figures::Figures(const Projection& projection, const CountingOptions& options,
                 std::uint64_t interval_usec, Doubt doubt)
    : projection_(projection), interval_usec_(interval_usec), doubt_(std::move(doubt)) {
  Patterns counters("--counter", options.counters, projection.taggedCounters());
  Patterns gauges("--gauge", options.gauges, projection.taggedGauges());
  std::set<std::string> seen;
  std::vector<std::string> names;  // in the order of the schema
  for (const TypeView& type : projection.schema().types()) {
    auto& followed = followed_.emplace_back();
    for (const Column& column : projection.columns(type)) {
      if (column.key != 0 || !isCounterSized(column)) continue;
      if (seen.insert(column.name).second) names.push_back(column.name);
      FieldKind kind = declaredKind(column, options);
      const std::string& own_name = ownName(type, column);
      if (counters.match(own_name, column.name) && kind != FieldKind::increase)
        kind = FieldKind::counter;
      if (gauges.match(own_name, column.name)) kind = FieldKind::gauge;
      if (!options.follow) continue;
      followed.push_back({&column, judges_.size()});
      judges_.emplace_back(kind, countsBytes(column) || countsPackets(column));
    }
  }
  counters.expectAllMatched(names);
  gauges.expectAllMatched(names);
}

void Figures::add(const Series& series) {
  if (all_.size() <= series.number) all_.resize(series.number + 1);  // other outputs have others
  SeriesFigures& added = all_[series.number];
  added.series = &series;
  for (const auto& [column, judge] : followed_[series.type->number]) {
    added.tracks.emplace_back(bitsOf(*column), judges_[judge]);
    added.uncertain.push_back(doubt_ && doubt_(series, *column));
  }
}

void Figures::sample(const Event& event, const Series& series) {
  if (series.number >= all_.size() || !all_[series.number].series) add(series);
  SeriesFigures& figures = all_[series.number];
  auto time =
      SampleTime::after(figures.last_usec, figures.step_usec, interval_usec_, event.timestamp_usec);
  if (figures.samples == 0) time.after_slow_read = false;
  figures.after_slow_read = time.after_slow_read;
  if (figures.samples++ == 0) {
    figures.first_usec = event.timestamp_usec;
  } else {
    figures.step_usec = time.elapsed_usec;
    // A sample that is late by three quarters of an interval stands for a missing one.
    const std::uint64_t intervals =
        interval_usec_ == 0 ? 0 : (time.elapsed_usec + interval_usec_ / 4) / interval_usec_;
    figures.missing = intervals > 1 ? intervals - 1 : 0;
  }
  figures.last_usec = event.timestamp_usec;
  auto track = figures.tracks.begin();
  for (const Followed& one : followed_[event.type->number])
    (track++)->sample(unsignedOf(*one.column, event.data), time);
}

std::vector<const Column*> Figures::columns(const TypeView& type) const {
  std::vector<const Column*> columns;
  for (const Followed& one : followed_[type.number]) columns.push_back(one.column);
  return columns;
}

int Figures::trackOf(const TypeView& type, const Column& column) const {
  const auto& followed = followed_[type.number];
  const auto found = std::ranges::find(followed, &column, &Followed::column);
  return found == followed.end() ? -1 : static_cast<int>(found - followed.begin());
}

}  // namespace tev::host
