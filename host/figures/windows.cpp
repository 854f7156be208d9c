#include "host/figures/windows.h"

#include <algorithm>
#include <span>
#include <utility>

namespace tev::host {
namespace {

// How long after its end a window stays open for late samples, besides its own length.
constexpr std::uint64_t kGraceUsec = 1'000'000;

// By track.
std::vector<TrackMark> marksOf(const SeriesFigures& series) {
  std::vector<TrackMark> marks;
  for (const Track& track : series.tracks) marks.push_back(TrackMark::of(track));
  return marks;
}

// The same before the last step of each track.
std::vector<TrackMark> marksBeforeLastStep(const SeriesFigures& series) {
  std::vector<TrackMark> marks = marksOf(series);
  for (std::size_t i = 0; i < marks.size(); ++i) {
    const Track& track = series.tracks[i];
    marks[i].total -= track.increase();
    if (track.step() == StepState::known) marks[i].known_usec -= series.step_usec;
    if (track.step() == StepState::unknown) --marks[i].unknown;
  }
  return marks;
}

void addValue(FieldWindow& field, Buckets& buckets, std::uint64_t value) {
  field.min = std::min(field.min, value);
  field.max = std::max(field.max, value);
  field.values += static_cast<double>(value);
  buckets.add(value);
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

bool isPartial(const SeriesWindow& window, std::uint64_t interval_usec, bool is_last) {
  const std::uint64_t usual = interval_usec + interval_usec / 2;
  const SeriesFigures& series = *window.series;
  const bool is_first = series.first_usec >= window.begin_usec;
  return (is_first && series.first_usec - window.begin_usec > usual) ||
         (is_last && window.end_usec - series.last_usec > usual);
}

Windows::Windows(const Figures& figures, std::uint64_t length_usec, Receiver receiver)
    : figures_(figures), length_usec_(length_usec), receiver_(std::move(receiver)) {}

void Windows::add(Current& added, const Series& series) {
  added.window.series = &figures_.of(series);
  const auto columns = figures_.columns(*series.type);
  added.window.fields.resize(columns.size());
  added.highest_before.resize(columns.size());
  for (const Column* const column : columns)
    added.window.buckets.emplace_back(static_cast<unsigned>(column->element_size * 8));
  if (isPlane(series)) ++groupOf(series.device).series;
}

void Windows::open(Current& current, std::uint64_t timestamp_usec) {
  SeriesWindow& window = current.window;
  auto begin = marksBeforeLastStep(*window.series);
  if (window.samples > 0) close(current, begin);
  current.begin = std::move(begin);
  window.begin_usec = timestamp_usec - timestamp_usec % length_usec_;
  window.end_usec = window.begin_usec + length_usec_;
}

void Windows::sample(const Event& event, const Series& series) {
  if (series.number >= current_.size()) current_.resize(series.number + 1);
  Current& current = current_[series.number];
  SeriesWindow& window = current.window;
  if (!window.series) add(current, series);
  const SeriesFigures& figures = *window.series;
  const std::uint64_t now = event.timestamp_usec;
  if (figures.after_slow_read) takeBackRates(current);
  if (window.samples == 0 || now >= window.end_usec || now < window.begin_usec) open(current, now);

  ++window.samples;
  window.missing += figures.missing;
  const std::span tracks(figures.tracks);
  const std::span fields(window.fields);
  for (std::size_t i = 0; i < tracks.size(); ++i) {
    const Track& track = tracks[i];
    FieldWindow& field = fields[i];
    if (track.step() == StepState::known &&
        (track.perUsec() > field.highest_per_usec || field.highest_at_usec == 0))
      raiseHighest(current, i, track.perUsec());
    if (!track.counts()) addValue(field, window.buckets[i], track.value());
  }
}

void Windows::raiseHighest(Current& current, std::size_t index, double per_usec) {
  FieldWindow& field = current.window.fields[index];
  current.highest_before[index] = {current.window.samples, field.highest_per_usec,
                                   field.highest_at_usec};
  field.highest_per_usec = per_usec;
  field.highest_at_usec = current.window.series->last_usec;
}

// The rates of the previous sample do not count: its read may have been slow.
void Windows::takeBackRates(Current& current) {
  SeriesWindow& window = current.window;
  for (std::size_t i = 0; i < window.fields.size(); ++i) {
    const HighestBefore& before = current.highest_before[i];
    if (window.samples == 0 || before.sample != window.samples) continue;
    window.fields[i].highest_per_usec = before.per_usec;
    window.fields[i].highest_at_usec = before.at_usec;
  }
}

void Windows::complete(std::uint64_t before_usec) {
  for (Current& one : current_)
    if (one.window.samples > 0 && one.window.end_usec <= before_usec)
      close(one, marksOf(*one.window.series));
  for (Group& group : groups_)
    if (group.complete > 0 && group.begin_usec + length_usec_ <= before_usec) emit(group);
}

void Windows::update(std::uint64_t now_usec) {
  const std::uint64_t patience = length_usec_ + kGraceUsec;
  if (now_usec > patience) complete(now_usec - patience);
}

void Windows::end() {
  is_ending_ = true;
  complete(UINT64_MAX);
}

void Windows::close(Current& current, const std::vector<TrackMark>& end) {
  SeriesWindow& window = current.window;
  for (std::size_t i = 0; i < end.size(); ++i) {
    window.fields[i].sum = end[i].total - current.begin[i].total;
    window.fields[i].known_usec = end[i].known_usec - current.begin[i].known_usec;
    window.fields[i].unknown = end[i].unknown - current.begin[i].unknown;
  }
  receiver_.series(window);
  if (isPlane(*window.series->series)) addToGroup(window);
  window.samples = 0;
  window.missing = 0;
  std::ranges::fill(window.fields, FieldWindow());
  std::ranges::fill(current.highest_before, HighestBefore());
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
