// The increases of counters, also across the ends of their ranges.
#pragma once

#include <cstdint>
#include <optional>

namespace tev::host {

// The step from one value of an unsigned number of 32 or 64 bits to the next. When a 32-bit value
// is smaller than the one before, it has either decreased or wrapped around. A wrap-around is
// assumed in two cases: when the value fell by more than a quarter of the range, and when the step
// across the end of the range is closer to `step_before` than the decrease is.
std::int64_t stepBetween(std::uint64_t before, std::uint64_t now, unsigned bits,
                         std::int64_t step_before);

// How often a field rises and falls, in all series that have it.
class Trend {
 public:
  void step(std::int64_t step) {
    moves_ += step != 0;
    falls_ += step < 0;
  }

  // Whether more than one change in sixteen is a decrease.
  bool isGauge() const { return falls_ * 16 > moves_; }

 private:
  std::uint64_t moves_ = 0;
  std::uint64_t falls_ = 0;
};

// One unsigned number, sample by sample.
class CounterTrack {
 public:
  // `counting_mode` is the field's: a RUNNING_SUM never decreases, and the values of a DELTA are
  // steps. `trend` counts every step and must outlive this.
  CounterTrack(unsigned bits, std::uint32_t counting_mode, Trend& trend)
      : bits_(bits), counting_mode_(counting_mode), trend_(&trend) {}

  void sample(std::uint64_t value, std::uint64_t timestamp_usec);

  std::uint64_t value() const { return value_; }

  bool isGauge() const { return trend_->isGauge(); }

  // Sum of all steps since the first sample.
  std::int64_t total() const { return static_cast<std::int64_t>(total_); }

  // Steps per second in the last window. A window reaches from the last sample of the window before
  // to the last sample before endWindow(). Nothing until a window has had two samples.
  std::optional<double> perSecond() const { return per_second_; }
  void endWindow();

  // Steps per second from the first sample to the last.
  std::optional<double> perSecondOfAll() const;

 private:
  std::int64_t stepTo(std::uint64_t value) const;

  unsigned bits_;
  std::uint32_t counting_mode_;
  Trend* trend_;
  bool started_ = false;
  std::uint64_t value_ = 0;
  std::uint64_t timestamp_usec_ = 0;
  std::int64_t step_ = 0;
  std::uint64_t total_ = 0;  // modulo 2^64

  std::uint64_t first_usec_ = 0;
  std::uint64_t window_usec_ = 0;  // where the window begins
  std::uint64_t window_total_ = 0;
  std::optional<double> per_second_;
};

}  // namespace tev::host
