// The last minutes of one field of one series.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "host/figures/windows.h"
#include "host/screen/symbols.h"

namespace tev::host {

// The figures of the points of a trace.
struct TraceSummary {
  double min = 0;
  double mean = 0;
  double p99 = 0;
  double max = 0;
  double peak = 0;  // of a single sample
};

// Has a point for each second: the mean rate of a counter, or the mean value of a gauge.
class Trace {
 public:
  static constexpr std::uint64_t kStepUsec = 1'000'000;
  static constexpr std::size_t kMaxPoints = 300;

  // Adds the point of a window of this length. Seconds without a window, since the previous one,
  // are missing if samples are missing; otherwise the first step of the window covers them.
  void add(const SeriesWindow& window, std::size_t field);

  // In order of time.
  const std::vector<TracePoint>& points() const { return points_; }

  // The mean of the last two seconds; nothing when none of them is known.
  std::optional<double> recentMean() const;

  // The points until this time: the seconds since the last point are missing.
  std::vector<TracePoint> pointsUntil(std::uint64_t now_usec) const;

  // The largest known point; 0 when no point is known.
  double max() const;

  // Nothing when no point is known.
  std::optional<TraceSummary> summary() const;

 private:
  void push(TracePoint point, float peak);

  std::vector<TracePoint> points_;
  std::vector<float> peaks_;    // by point
  std::uint64_t end_usec_ = 0;  // of the last point
};

}  // namespace tev::host
