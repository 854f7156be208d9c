#include "host/plot/findings.h"

#include <algorithm>

#include "host/plot/bucket.h"

namespace tev::host {
namespace {

constexpr std::uint64_t kLeastWindowUsec = 1'000'000;
constexpr std::uint64_t kLeastSamples = 10;  // in a window
constexpr std::size_t kMostPoints = 1024;

void append(GaugeBand::Point& one, const GaugeBand::Point& later) {
  const float windows = one.windows + later.windows;
  if (windows > 0) one.mean = (one.mean * one.windows + later.mean * later.windows) / windows;
  one.p99 = std::max(one.p99, later.p99);
  one.windows = windows;
}

PlaneFinding& findingOf(std::vector<PlaneFinding>& all, const std::string& field,
                        const Series* plane) {
  const auto found = std::ranges::find_if(
      all, [&](const PlaneFinding& one) { return one.plane == plane && one.field == field; });
  if (found != all.end()) return *found;
  PlaneFinding& added = all.emplace_back();
  added.field = field;
  added.plane = plane;
  return added;
}

}  // namespace

Findings::Findings(const Figures& figures)
    : window_usec_(std::max(kLeastWindowUsec, kLeastSamples * figures.intervalUsec())),
      width_usec_(window_usec_),
      windows_(figures, window_usec_,
               {[this](const SeriesWindow& window) { take(window); },
                [this](const DeviceWindow& window) { take(window); }}) {}

void Findings::take(const SeriesWindow& window) {
  const Series& series = *window.series->series;
  for (std::size_t i = 0; i < window.fields.size(); ++i) {
    const Track& track = window.series->tracks[i];
    if (track.kind() != FieldKind::gauge || !track.hasMoved()) continue;
    const std::size_t point = pointOf(window.begin_usec);
    append(elementAt(bands_[{series.number, i}].points, point),
           {static_cast<float>(window.mean(i)), static_cast<float>(window.quantile(i, 0.99)), 1});
  }
}

void Findings::take(const DeviceWindow& window) {
  Device& device = devices_[window.device];
  ++device.windows;
  for (const Comparison& one : window.fields) {
    if (!one.stands_out || one.has_unknown) continue;
    PlaneFinding& finding = findingOf(device.planes, one.field, one.planes[one.worst]);
    finding.kind = one.kind;
    ++finding.windows;
    finding.excess += one.imbalance - 1;
    if (one.imbalance <= finding.highest_imbalance) continue;
    finding.highest_imbalance = one.imbalance;
    finding.highest_share = one.share(one.worst);
    finding.highest_usec = window.begin_usec;
  }
}

std::size_t Findings::pointOf(std::uint64_t usec) {
  if (begin_usec_ == 0) begin_usec_ = usec;
  while (true) {
    const auto point =
        static_cast<std::size_t>(usec < begin_usec_ ? 0 : (usec - begin_usec_) / width_usec_);
    if (point < kMostPoints) return point;
    width_usec_ *= 2;
    for (auto& [key, band] : bands_) halveRow(band.points, append);
  }
}

const PlaneFinding* Findings::worst(const std::string& device) const {
  const auto found = devices_.find(device);
  if (found == devices_.end() || found->second.planes.empty()) return nullptr;
  return &*std::ranges::max_element(found->second.planes, {}, &PlaneFinding::excess);
}

double Findings::score(const std::string& device) const {
  const PlaneFinding* const finding = worst(device);
  if (!finding) return 0;
  return finding->excess / static_cast<double>(devices_.at(device).windows);
}

const GaugeBand* Findings::band(const Series& series, std::size_t track) const {
  const auto found = bands_.find({series.number, track});
  return found == bands_.end() ? nullptr : &found->second;
}

}  // namespace tev::host
