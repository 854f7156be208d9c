#include "host/plot/series_rows.h"

#include <algorithm>
#include <utility>

namespace tev::host {

SeriesRows::SeriesRows(const SeriesFigures& figures)
    : figures_(figures), current_(figures.tracks.size()), fields_(figures.tracks.size()) {
  for (std::size_t i = 0; i < fields_.size(); ++i)
    fields_[i].constant = static_cast<float>(figures.tracks[i].value());
}

void SeriesRows::sample(std::size_t bucket) {
  if (!figures_.after_slow_read) takeWaitingRates();
  if (bucket != bucket_) {
    close();
    bucket_ = bucket;
  }
  ++count_.samples;
  count_.elapsed_usec += static_cast<float>(figures_.step_usec);
  for (std::size_t i = 0; i < current_.size(); ++i) {
    const Track& track = figures_.tracks[i];
    const FieldKind kind = track.kind();
    if (kind == FieldKind::gauge || kind == FieldKind::undecided) {
      const auto value = static_cast<float>(track.value());
      current_[i].value.add(value);
      current_[i].value.sum += value;
      fields_[i].value_sum += static_cast<double>(track.value());
    }
    if (kind != FieldKind::gauge) sampleCounter(current_[i], track, fields_[i]);
  }
  previous_step_usec_ = figures_.step_usec;
}

// A slow read makes the rate of its step too high, and that of the next step too low. Both steps
// are then shown as one.
void SeriesRows::sampleCounter(Current& current, const Track& track, FieldRows& field) {
  const std::uint64_t increase = track.total() - std::exchange(current.total, track.total());
  current.rate.sum += static_cast<float>(static_cast<std::int64_t>(increase));
  if (std::exchange(current.unknown, track.unknownSteps()) != track.unknownSteps() &&
      (field.unknown.empty() || field.unknown.back() != bucket_))
    field.unknown.push_back(static_cast<std::uint32_t>(bucket_));
  double per_second = track.perUsec() * 1e6;
  // After a step was taken back, the total has not grown by the last increase.
  if (current.is_waiting && figures_.after_slow_read && increase == track.increase())
    per_second = static_cast<double>(current.waiting_increase + increase) * 1e6 /
                 static_cast<double>(previous_step_usec_ + figures_.step_usec);
  current.is_waiting = track.step() == StepState::known;
  current.waiting_per_second = per_second;
  current.waiting_increase = track.increase();
}

void SeriesRows::takeWaitingRates() {
  for (Current& one : current_)
    if (std::exchange(one.is_waiting, false))
      one.rate.add(static_cast<float>(one.waiting_per_second));
}

void SeriesRows::finish() {
  takeWaitingRates();
  close();
}

// The rows of the open bucket are complete. Those that the field's kind does not need are removed.
void SeriesRows::close() {
  if (count_.samples == 0) return;
  for (std::size_t i = 0; i < current_.size(); ++i) {
    const FieldKind kind = figures_.tracks[i].kind();
    if (kind != FieldKind::gauge) closeRates(fields_[i], current_[i].rate);
    if (kind == FieldKind::gauge || kind == FieldKind::undecided)
      closeValues(fields_[i], current_[i].value);
    if (kind == FieldKind::gauge && !fields_[i].rates.empty()) fields_[i].rates = {};
    if (figures_.tracks[i].counts() && !fields_[i].values.empty()) fields_[i].values = {};
    current_[i].rate = {};
    current_[i].value = {};
  }
  elementAt(counts_, bucket_).append(std::exchange(count_, {}));
}

void SeriesRows::closeRates(FieldRows& field, const Bucket& bucket) {
  const bool is_still =
      (bucket.isEmpty() || (bucket.first == 0 && bucket.second == 0)) && bucket.sum == 0;
  if (field.rates.empty() && is_still) return;
  if (field.rates.empty())
    for (std::size_t i = 0; i < counts_.size(); ++i)
      if (counts_[i].elapsed_usec > 0) elementAt(field.rates, i).add(0);
  elementAt(field.rates, bucket_).append(bucket);
}

void SeriesRows::closeValues(FieldRows& field, const Bucket& bucket) {
  const float constant = field.constant;
  const bool is_still = bucket.isEmpty() || (bucket.first == constant && bucket.second == constant);
  if (field.values.empty() && is_still) return;
  if (field.values.empty())
    for (std::size_t i = 0; i < counts_.size(); ++i)
      if (counts_[i].samples > 0)
        elementAt(field.values, i)
            .append({constant, constant, constant * static_cast<float>(counts_[i].samples)});
  elementAt(field.values, bucket_).append(bucket);
}

void SeriesRows::halve() {
  const auto append = [](auto& one, const auto& later) { one.append(later); };
  bucket_ /= 2;
  halveRow(counts_, append);
  for (FieldRows& field : fields_) {
    halveRow(field.rates, append);
    halveRow(field.values, append);
    for (std::uint32_t& one : field.unknown) one /= 2;
    field.unknown.erase(std::unique(field.unknown.begin(), field.unknown.end()),
                        field.unknown.end());
  }
}

std::size_t SeriesRows::rows() const {
  std::size_t rows = 1;
  for (const FieldRows& field : fields_)
    rows += static_cast<std::size_t>(!field.rates.empty()) +
            static_cast<std::size_t>(!field.values.empty());
  return rows;
}

double SeriesRows::mean(std::size_t field, const Bucket& bucket, const SampleCount& count) const {
  if (!figures_.tracks[field].counts())
    return count.samples == 0 ? 0 : static_cast<double>(bucket.sum) / count.samples;
  if (!(count.elapsed_usec > 0)) return 0;
  return static_cast<double>(bucket.sum) * 1e6 / static_cast<double>(count.elapsed_usec);
}

}  // namespace tev::host
