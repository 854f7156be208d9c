// The reduced samples of one series.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "host/figures/figures.h"
#include "host/plot/bucket.h"

namespace tev::host {

// The samples of a series in one bucket.
struct SampleCount {
  std::uint32_t samples = 0;
  float elapsed_usec = 0;  // the time of their steps

  void append(const SampleCount& later) {
    samples += later.samples;
    elapsed_usec += later.elapsed_usec;
  }
};

// The reduced samples of one field. A field that never moves needs no row.
struct FieldRows {
  std::vector<Bucket> rates;           // per second; empty: all are 0
  std::vector<Bucket> values;          // empty: all are `constant`
  float constant = 0;                  // the first value
  double value_sum = 0;                // of all samples
  std::vector<std::uint32_t> unknown;  // buckets with unknown steps, in the order of time

  const std::vector<Bucket>& rowOf(const Track& track) const {
    return track.counts() ? rates : values;
  }
};

class SeriesRows {
 public:
  // `figures` must outlive this.
  explicit SeriesRows(const SeriesFigures& figures);

  // To be called with each sample after the figures have received it.
  void sample(std::size_t bucket);

  // To be called after the last sample.
  void finish();

  // Makes the buckets twice as long.
  void halve();

  // The number of rows that have buckets.
  std::size_t rows() const;

  const SeriesFigures& figures() const { return figures_; }
  const std::vector<SampleCount>& counts() const { return counts_; }
  const std::vector<FieldRows>& fields() const { return fields_; }  // by track

  // The mean of a bucket of this field's row, or of several joined ones.
  double mean(std::size_t field, const Bucket& bucket, const SampleCount& count) const;

 private:
  // A field in the current bucket.
  struct Current {
    Bucket rate;
    Bucket value;
    std::uint64_t total = 0;
    std::uint64_t unknown = 0;
    // The rate of the last step. The next sample tells whether its read was slow.
    double waiting_per_second = 0;
    std::uint64_t waiting_increase = 0;
    bool is_waiting = false;
  };

  void sampleCounter(Current& current, const Track& track, FieldRows& field);
  void takeWaitingRates();
  void close();
  void closeRates(FieldRows& field, const Bucket& bucket);
  void closeValues(FieldRows& field, const Bucket& bucket);

  const SeriesFigures& figures_;
  std::size_t bucket_ = 0;  // of the last sample
  SampleCount count_;       // in that bucket
  std::uint64_t previous_step_usec_ = 0;
  std::vector<Current> current_;  // by track
  std::vector<SampleCount> counts_;
  std::vector<FieldRows> fields_;
};

}  // namespace tev::host
