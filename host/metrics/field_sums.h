// Metrics of the fields of many nodes: one for each field, however many nodes there are.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <limits>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "host/figures/track.h"
#include "host/metrics/family.h"
#include "host/metrics/field_names.h"
#include "host/metrics/metric_names.h"
#include "host/metrics/recent_peak.h"

namespace tev::host {

// One field, over all of its series. Its kind is decided once for all of them.
class FieldSum {
 public:
  FieldSum(FieldKind known, bool text_says_counter) : judge_(known, text_says_counter) {}

  // A track of the field, for one series. Its address is not needed by the sum.
  Track newTrack(unsigned bits) { return {bits, judge_}; }

  // The next sample of a series.
  void sample(Track& track, std::uint64_t value, const SampleTime& time);

  // A sample of a field that has no track.
  void sample(double value) {
    largest_ = std::max(largest_, value);
    smallest_ = std::min(smallest_, value);
  }

 private:
  friend class FieldSums;
  static constexpr double kHighest = std::numeric_limits<double>::infinity();

  KindJudge judge_;
  std::uint64_t total_ = 0;  // of the known steps; some are taken back
  std::uint64_t unknown_steps_ = 0;
  // Since the last publication.
  double highest_per_usec_ = -kHighest;
  double largest_ = -kHighest;
  double smallest_ = kHighest;
};

// A rate counts when the next sample has confirmed it.
inline void FieldSum::sample(Track& track, std::uint64_t value, const SampleTime& time) {
  if (judge_.kind() != FieldKind::gauge) {
    if (track.step() == StepState::known && !time.after_slow_read)
      highest_per_usec_ = std::max(highest_per_usec_, track.perUsec());
    const std::uint64_t total = track.total();
    const std::uint64_t unknown_steps = track.unknownSteps();
    track.sample(value, time);
    total_ += track.total() - total;
    unknown_steps_ += track.unknownSteps() - unknown_steps;
    if (track.counts()) return;
  }
  sample(static_cast<double>(value));
}

class FieldSums {
 public:
  static constexpr std::size_t kMostFields = 4096;

  // `peak` is the time over which the extremes of single samples are given. `names` must outlive
  // this.
  FieldSums(std::chrono::seconds peak, MetricNames& names) : peak_(peak), names_(names) {}

  // Null when the field has no metrics: it is a text, an array or part of a key, another field has
  // its names, or there are too many.
  FieldSum* of(const TypeView& type, const Column& column);

  // Totals never fall.
  std::vector<MetricFamily> families(std::uint64_t now_usec);

  // The number of fields that have no metrics because of their names, and whether others have none
  // because there are too many.
  std::size_t leftOut() const { return left_out_; }
  bool isFull() const { return is_full_; }

 private:
  struct Field {
    Field(FieldNames field_names, FieldSum field_sum, std::size_t seconds)
        : names(std::move(field_names)),
          sum(field_sum),
          highest(seconds),
          largest(seconds),
          smallest(seconds) {}

    FieldNames names;
    FieldSum sum;
    std::uint64_t total = 0;  // as published
    std::uint64_t unknown_steps = 0;
    RecentPeak highest;   // rate per second
    RecentPeak largest;   // value
    RecentPeak smallest;  // value, with the opposite sign
  };

  FieldSum* add(const TypeView& type, const Column& column, FieldKind kind);
  static void keepExtremes(Field& field, std::uint64_t second);

  std::chrono::seconds peak_;
  MetricNames& names_;
  std::deque<Field> fields_;
  std::map<std::pair<std::string, FieldKind>, FieldSum*> by_name_;  // also those that are left out
  std::size_t left_out_ = 0;
  bool is_full_ = false;
};

}  // namespace tev::host
