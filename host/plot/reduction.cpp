#include "host/plot/reduction.h"

#include <algorithm>
#include <string_view>

namespace tev::host {
namespace {

constexpr std::uint64_t kUsualWidthUsec = 1000;  // when the interval is not known
constexpr std::size_t kSpare = 64;               // buckets before the first sample
constexpr std::size_t kLeastBuckets = 2048;      // of a row
constexpr std::size_t kCheckEvery = 256;         // buckets
constexpr std::uint64_t kSilentIntervals = 5;
constexpr std::uint8_t kWholeGap = 255;

Mark markOf(std::string_view cause) {
  if (cause == "buffer_full" || cause == "discarded") return kLost;
  return cause.starts_with("missed") ? kNotRead : kRefused;
}

}  // namespace

Reduction::Reduction(const Figures& figures, std::size_t most_buckets)
    : figures_(figures),
      most_buckets_(most_buckets),
      width_usec_(figures.intervalUsec() > 0 ? figures.intervalUsec() : kUsualWidthUsec) {}

void Reduction::sample(const Event& event, const Series& series) {
  if (first_usec_ == 0) {
    first_usec_ = event.timestamp_usec;
    begin_usec_ = first_usec_ - std::min(first_usec_, kSpare * width_usec_);
  }
  first_usec_ = std::min(first_usec_, event.timestamp_usec);
  last_usec_ = std::max(last_usec_, event.timestamp_usec);
  const SeriesFigures& figures = figures_.of(series);
  auto& rows = elementAt(rows_, series.number);
  if (!rows) rows = std::make_unique<SeriesRows>(figures);
  rows->sample(bucketOf(event.timestamp_usec));
  if (figures.missing > 0)
    mark(series.device, event.timestamp_usec - figures.step_usec, event.timestamp_usec, kGap);
}

void Reduction::missing(const MissingSamples& missing) {
  if (first_usec_ > 0)
    mark(missing.device, missing.from_usec, missing.to_usec, markOf(missing.cause));
}

// Marks the buckets between the two times, without their own, but at least one.
void Reduction::mark(const std::string& device, std::uint64_t from_usec, std::uint64_t to_usec,
                     Mark mark) {
  bucketOf(std::min(to_usec, last_usec_));  // the buckets may become longer
  std::size_t first = bucketOf(from_usec) + 1;
  std::size_t last = bucketOf(std::min(to_usec, last_usec_));
  if (first < last)
    --last;
  else
    first = last;
  std::vector<DeviceMarks>& marks = marks_[device];
  for (std::size_t i = first; i <= last; ++i) {
    DeviceMarks& one = elementAt(marks, i);
    one.marks |= mark;
    if (mark == kGap) one.gap = kWholeGap;
  }
}

void Reduction::finish() {
  for (const auto& rows : rows_)
    if (rows) {
      rows->finish();
      markSilence(rows->figures());
    }
}

// A series that begins later or ends earlier than the others.
void Reduction::markSilence(const SeriesFigures& series) {
  const std::uint64_t patience = kSilentIntervals * figures_.intervalUsec();
  if (patience == 0) return;
  const std::string& device = series.series->device;
  if (series.first_usec > first_usec_ + patience)
    mark(device, first_usec_, series.first_usec, kGap);
  if (series.last_usec + patience < last_usec_)
    mark(device, series.last_usec, last_usec_ + width_usec_, kGap);
}

std::size_t Reduction::buckets() const {
  return first_usec_ == 0 ? 0
                          : static_cast<std::size_t>((last_usec_ - begin_usec_) / width_usec_) + 1;
}

std::size_t Reduction::bucketOf(std::uint64_t usec) {
  while (true) {
    const auto bucket =
        static_cast<std::size_t>(usec < begin_usec_ ? 0 : (usec - begin_usec_) / width_usec_);
    if (bucket < checked_) return bucket;
    std::size_t rows = 0;
    for (const auto& one : rows_)
      if (one) rows += one->rows();
    if (bucket < std::max(kLeastBuckets, most_buckets_ / std::max<std::size_t>(rows, 1))) {
      checked_ = bucket + kCheckEvery;
      return bucket;
    }
    halve();
  }
}

void Reduction::halve() {
  width_usec_ *= 2;
  checked_ = 0;
  for (const auto& one : rows_)
    if (one) one->halve();
  for (auto& [device, marks] : marks_)
    halveRow(marks, [](DeviceMarks& one, const DeviceMarks& later) { one.append(later); });
}

const SeriesRows* Reduction::of(const Series& series) const {
  return series.number < rows_.size() ? rows_[series.number].get() : nullptr;
}

const std::vector<DeviceMarks>& Reduction::marks(const std::string& device) const {
  static const std::vector<DeviceMarks> kNone;
  const auto found = marks_.find(device);
  return found == marks_.end() ? kNone : found->second;
}

}  // namespace tev::host
