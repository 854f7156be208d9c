// The samples of a recording of any length, reduced to buckets of equal length. A bucket keeps the
// smallest and the largest value, so that no single sample disappears.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/events/decoder.h"
#include "host/figures/figures.h"
#include "host/figures/health.h"
#include "host/plot/series_rows.h"

namespace tev::host {

// What is wrong in a bucket. The page has the same numbers.
enum Mark : std::uint8_t {
  kGap = 1,          // by the time stamps, samples are missing
  kLost = 2,         // samples were dropped before the host had them
  kRefused = 4,      // the device refused reads
  kNotRead = 8,      // the sampling thread was late
  kUnknownStep = 16  // of a counter
};

// The marks of a device in one bucket.
struct DeviceMarks {
  std::uint8_t marks = 0;
  std::uint8_t gap = 0;  // the part of the bucket in which samples are missing; 255: all of it

  void append(const DeviceMarks& later) {
    marks |= later.marks;
    gap = static_cast<std::uint8_t>((gap + later.gap + 1) / 2);  // never back to 0
  }
};

class Reduction {
 public:
  // When more than `most_buckets` are needed, all buckets become twice as long. `figures` must
  // outlive this.
  Reduction(const Figures& figures, std::size_t most_buckets);

  // To be called with each event after the figures have received it.
  void sample(const Event& event, const Series& series);

  // Samples that the source counted as missing.
  void missing(const MissingSamples& missing);

  // To be called after the last sample.
  void finish();

  std::uint64_t beginUsec() const { return begin_usec_; }  // of the first bucket
  std::uint64_t widthUsec() const { return width_usec_; }  // of a bucket
  std::size_t buckets() const;                             // up to the last sample
  std::uint64_t firstUsec() const { return first_usec_; }  // time stamps; 0: no sample
  std::uint64_t lastUsec() const { return last_usec_; }

  // By the series' number; null: the series has no sample.
  const SeriesRows* of(const Series& series) const;
  const std::vector<std::unique_ptr<SeriesRows>>& all() const { return rows_; }

  // By bucket. May be shorter than the other rows.
  const std::vector<DeviceMarks>& marks(const std::string& device) const;

 private:
  std::size_t bucketOf(std::uint64_t usec);
  void halve();
  void mark(const std::string& device, std::uint64_t from_usec, std::uint64_t to_usec, Mark mark);
  void markSilence(const SeriesFigures& series);

  const Figures& figures_;
  std::size_t most_buckets_;
  std::uint64_t begin_usec_ = 0;
  std::uint64_t width_usec_;
  std::uint64_t first_usec_ = 0;
  std::uint64_t last_usec_ = 0;
  std::size_t checked_ = 0;  // up to this bucket, there is enough memory
  std::vector<std::unique_ptr<SeriesRows>> rows_;
  std::map<std::string, std::vector<DeviceMarks>> marks_;  // by device
};

}  // namespace tev::host
