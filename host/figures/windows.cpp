#include "host/figures/windows.h"

#include <algorithm>
#include <utility>

namespace tev::host {
namespace {

// Adds the last sample of a track.
void add(FieldWindow& field, const Track& track, bool is_first, const SeriesFigures& series,
         double per_usec) {
  field.highest_before = field.highest_per_usec;
  field.highest_before_at_usec = field.highest_at_usec;
  if (track.step() == StepState::known) {
    field.sum += track.increase();
    const double rate = static_cast<double>(track.increase()) * per_usec;
    if (rate > field.highest_per_usec || field.highest_at_usec == 0) {
      field.highest_per_usec = rate;
      field.highest_at_usec = series.last_usec;
    }
  } else if (track.step() == StepState::unknown) {
    ++field.unknown;
  }
  const std::uint64_t value = track.value();
  field.min = is_first ? value : std::min(field.min, value);
  field.max = is_first ? value : std::max(field.max, value);
  field.values += static_cast<double>(value);
}

// The read before the last one may have been slow: the rate of its step does not count, and neither
// does the step if the track has taken it back.
void takeBack(FieldWindow& field, const Track& track) {
  field.highest_per_usec = field.highest_before;
  field.highest_at_usec = field.highest_before_at_usec;
  const Track::TakenBack& step = track.takenBack();
  if (step.usec == 0) return;
  field.sum -= step.increase;
  field.known_usec -= step.usec;
  ++field.unknown;
}

// The comparison of this field, which is added when there is none.
Comparison& comparisonOf(std::vector<Comparison>& all, const std::string& field) {
  const auto found = std::ranges::find(all, field, &Comparison::field);
  if (found != all.end()) return *found;
  all.emplace_back().field = field;
  return all.back();
}

}  // namespace

std::uint64_t SeriesWindow::quantile(std::size_t field, double q) const {
  return std::clamp(buckets[field].quantile(q, samples), fields[field].min, fields[field].max);
}

Windows::Windows(const Figures& figures, std::uint64_t length_usec, Receiver receiver)
    : figures_(figures), length_usec_(length_usec), receiver_(std::move(receiver)) {}

void Windows::open(const Series& series, std::uint64_t timestamp_usec) {
  SeriesWindow& window = windows_[series.number];
  if (!window.series) {
    window.series = &figures_.of(series);
    window.fields.resize(window.series->tracks.size());
    if (isPlane(series)) ++groupOf(series.device).series;
    for (const Column* const column : figures_.columns(*series.type))
      window.buckets.emplace_back(static_cast<unsigned>(column->element_size * 8));
  }
  window.begin_usec = timestamp_usec - timestamp_usec % length_usec_;
  window.end_usec = window.begin_usec + length_usec_;
}

void Windows::sample(const Event& event, const Series& series) {
  if (series.number >= windows_.size()) windows_.resize(series.number + 1);
  SeriesWindow& window = windows_[series.number];
  const std::uint64_t now = event.timestamp_usec;
  if (window.samples > 0 && window.series->after_slow_read)
    for (std::size_t i = 0; i < window.fields.size(); ++i)
      takeBack(window.fields[i], window.series->tracks[i]);
  if (window.samples > 0 && (now >= window.end_usec || now < window.begin_usec)) close(window);
  if (window.samples == 0) open(series, now);

  const SeriesFigures& figures = *window.series;
  const double per_usec = figures.step_usec == 0 ? 0 : 1 / static_cast<double>(figures.step_usec);
  const bool is_first = window.samples++ == 0;
  window.missing += figures.missing;
  for (std::size_t i = 0; i < figures.tracks.size(); ++i) {
    const Track& track = figures.tracks[i];
    FieldWindow& field = window.fields[i];
    add(field, track, is_first, figures, per_usec);
    if (track.step() == StepState::known) field.known_usec += figures.step_usec;
    if (!track.counts()) window.buckets[i].add(track.value());
  }
}

void Windows::complete(std::uint64_t before_usec) {
  for (SeriesWindow& window : windows_)
    if (window.samples > 0 && window.end_usec <= before_usec) close(window);
  for (Group& group : groups_)
    if (group.complete > 0 && group.begin_usec + length_usec_ <= before_usec) emit(group);
}

void Windows::close(SeriesWindow& window) {
  receiver_.series(window);
  if (isPlane(*window.series->series)) addToGroup(window);
  window.samples = 0;
  window.missing = 0;
  std::ranges::fill(window.fields, FieldWindow());
  for (std::size_t i = 0; i < window.buckets.size(); ++i)
    if (!window.series->tracks[i].counts()) window.buckets[i].clear();
}

Windows::Group& Windows::groupOf(const std::string& device) {
  const auto found = std::ranges::find(groups_, device, &Group::device);
  if (found != groups_.end()) return *found;
  return groups_.emplace_back(Group{device, 0, 0, 0, {}});
}

void Windows::addToGroup(const SeriesWindow& window) {
  const Series& series = *window.series->series;
  Group& group = groupOf(series.device);
  if (group.complete > 0 && group.begin_usec != window.begin_usec) emit(group);
  group.begin_usec = window.begin_usec;
  const auto columns = figures_.columns(*series.type);
  for (std::size_t i = 0; i < columns.size(); ++i) {
    const Track& track = window.series->tracks[i];
    if (track.kind() == FieldKind::undecided) continue;
    const FieldWindow& field = window.fields[i];
    comparisonOf(group.fields, columns[i]->name)
        .add({.plane = &series,
              .kind = track.kind(),
              .amount = track.counts() ? static_cast<double>(field.sum) : window.mean(i),
              .has_unknown = track.counts() && field.unknown > 0,
              .is_uncertain = track.counts() && window.series->uncertain[i]});
  }
  if (++group.complete == group.series) emit(group);
}

void Windows::emit(Group& group) {
  for (Comparison& one : group.fields) one.finish();
  receiver_.device({group.device, group.begin_usec, group.begin_usec + length_usec_, group.fields});
  group.complete = 0;
  group.fields.clear();
}

}  // namespace tev::host
