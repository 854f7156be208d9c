#include "host/figures/recent.h"

#include <algorithm>
#include <utility>

namespace tev::host {

void RecentFigures::update(std::uint64_t now_usec) {
  const auto& all = figures_.all();
  marks_.resize(all.size());
  for (std::size_t i = 0; i < all.size(); ++i) {
    Marks& marks = marks_[i];
    marks.is_fresh = std::exchange(marks.samples, all[i].samples) != all[i].samples;
    if (!marks.is_fresh) continue;
    if (now_usec >= marks.now_usec && now_usec - marks.now_usec < span_usec_) continue;
    marks.now_usec = now_usec;
    marks.before = std::exchange(marks.now, {});
    marks.before.resize(all[i].tracks.size());
    for (const Track& track : all[i].tracks) marks.now.push_back(TrackMark::of(track));
  }
}

bool RecentFigures::isFresh(const Series& series) const {
  return series.number < marks_.size() && marks_[series.number].is_fresh;
}

Reading RecentFigures::of(const Series& series, std::size_t track) const {
  const bool has_mark =
      series.number < marks_.size() && track < marks_[series.number].before.size();
  Reading reading =
      since(has_mark ? marks_[series.number].before[track] : TrackMark(), series, track);
  if (reading.has_unknown) reading.per_second.reset();
  return reading;
}

Reading RecentFigures::ofWholeRun(const Series& series, std::size_t track) const {
  return since(TrackMark(), series, track);
}

Reading RecentFigures::since(const TrackMark& mark, const Series& series, std::size_t track) const {
  const SeriesFigures& figures = figures_.of(series);
  const Track& one = figures.tracks[track];
  Reading reading;
  reading.kind = one.kind();
  reading.value = one.value();
  reading.has_moved = one.hasMoved();
  if (!reading.counts()) return reading;
  reading.total = one.total();
  reading.is_lower_bound = one.unknownSteps() > 0;
  reading.increase = one.total() - std::min(one.total(), mark.total);  // steps may be taken back
  reading.per_second = perSecondSince(mark, one);
  reading.has_unknown = one.unknownSteps() > mark.unknown;
  reading.is_uncertain = figures.uncertain[track];
  return reading;
}

}  // namespace tev::host
