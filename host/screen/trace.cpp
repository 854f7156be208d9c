#include "host/screen/trace.h"

#include <algorithm>
#include <cmath>

namespace tev::host {
namespace {

TracePoint pointOf(const SeriesWindow& window, std::size_t field) {
  const Track& track = window.series->tracks[field];
  if (window.samples == 0 || track.kind() == FieldKind::undecided) return {};
  if (!track.counts()) return {TracePoint::State::known, static_cast<float>(window.mean(field))};
  const auto rate = window.fields[field].meanPerSecond();
  if (window.fields[field].unknown > 0) return {TracePoint::State::unknown, 0};
  if (!rate) return {};  // the first sample
  return {TracePoint::State::known, static_cast<float>(*rate)};
}

float peakOf(const SeriesWindow& window, std::size_t field) {
  const FieldWindow& one = window.fields[field];
  return window.series->tracks[field].counts() ? static_cast<float>(one.highest_per_usec * 1e6)
                                               : static_cast<float>(one.max);
}

}  // namespace

void Trace::add(const SeriesWindow& window, std::size_t field) {
  const TracePoint point = pointOf(window, field);
  const float peak = point.state == TracePoint::State::known ? peakOf(window, field) : 0;
  if (!points_.empty() && window.begin_usec > end_usec_) {
    const std::uint64_t between = (window.begin_usec - end_usec_) / kStepUsec;
    const TracePoint filler = window.missing > 0 ? TracePoint() : point;
    for (std::uint64_t i = 0; i < std::min<std::uint64_t>(between, kMaxPoints); ++i)
      push(filler, filler.state == TracePoint::State::known ? peak : 0);
  }
  push(point, peak);
  end_usec_ = window.end_usec;
}

void Trace::push(TracePoint point, float peak) {
  if (points_.size() == kMaxPoints) {
    points_.erase(points_.begin());
    peaks_.erase(peaks_.begin());
  }
  points_.push_back(point);
  peaks_.push_back(peak);
}

std::optional<double> Trace::recentMean() const {
  double sum = 0;
  int known = 0;
  for (std::size_t i = points_.size() - std::min<std::size_t>(points_.size(), 2);
       i < points_.size(); ++i) {
    if (points_[i].state != TracePoint::State::known) continue;
    sum += static_cast<double>(points_[i].value);
    ++known;
  }
  if (known == 0) return std::nullopt;
  return sum / known;
}

std::vector<TracePoint> Trace::pointsUntil(std::uint64_t now_usec) const {
  std::vector<TracePoint> points = points_;
  const std::uint64_t seconds = (now_usec - std::min(now_usec, end_usec_)) / kStepUsec;
  if (!points.empty()) points.resize(points.size() + std::min<std::uint64_t>(seconds, kMaxPoints));
  return points;
}

double Trace::max() const {
  float max = 0;
  for (const TracePoint& point : points_)
    if (point.state == TracePoint::State::known) max = std::max(max, point.value);
  return static_cast<double>(max);
}

std::optional<TraceSummary> Trace::summary() const {
  std::vector<float> known;
  double sum = 0;
  for (const TracePoint& point : points_) {
    if (point.state != TracePoint::State::known) continue;
    known.push_back(point.value);
    sum += static_cast<double>(point.value);
  }
  if (known.empty()) return std::nullopt;
  std::ranges::sort(known);
  const auto count = static_cast<double>(known.size());
  const auto rank = static_cast<std::size_t>(std::ceil(0.99 * count));  // nearest rank
  return TraceSummary{.min = static_cast<double>(known.front()),
                      .mean = sum / count,
                      .p99 = static_cast<double>(known[rank - 1]),
                      .max = static_cast<double>(known.back()),
                      .peak = static_cast<double>(*std::ranges::max_element(peaks_))};
}

}  // namespace tev::host
