// What short windows of a recording say: which plane stands out, and the spread of gauges.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "host/figures/windows.h"

namespace tev::host {

// How much a plane stands out in a field.
struct PlaneFinding {
  std::string field;
  const Series* plane = nullptr;
  std::size_t windows = 0;         // in which it stands out
  double excess = 0;               // sum over them: the plane's amount over the mean, minus 1
  double highest_imbalance = 0;    // the plane's amount over the mean of all planes
  double highest_share = 0;        // its share of the sum in that window
  std::uint64_t highest_usec = 0;  // begin of that window
  FieldKind kind = FieldKind::counter;
};

// A gauge in the windows of a recording, at most a thousand.
struct GaugeBand {
  struct Point {
    float mean = 0;
    float p99 = 0;      // the highest one of a window
    float windows = 0;  // 0: no samples
  };
  std::vector<Point> points;
};

class Findings {
 public:
  // `figures` must outlive this.
  explicit Findings(const Figures& figures);
  Findings(const Findings&) = delete;
  Findings& operator=(const Findings&) = delete;

  // To be called with each event after the figures have received it.
  void sample(const Event& event, const Series& series) { windows_.sample(event, series); }

  // To be called after the samples of an update, and at the end with the largest time.
  void complete(std::uint64_t before_usec) { windows_.complete(before_usec); }

  // The plane that stands out most in a field of the device; null: none does.
  const PlaneFinding* worst(const std::string& device) const;

  // The share of the windows in which the plane stands out, weighted by how much: 0 for none.
  double score(const std::string& device) const;

  // Null when there is none. The first point is at beginUsec().
  const GaugeBand* band(const Series& series, std::size_t track) const;
  std::uint64_t beginUsec() const { return begin_usec_; }
  std::uint64_t widthUsec() const { return width_usec_; }  // of a point
  std::uint64_t windowUsec() const { return window_usec_; }

 private:
  struct Device {
    std::size_t windows = 0;
    std::vector<PlaneFinding> planes;
  };

  void take(const SeriesWindow& window);
  void take(const DeviceWindow& window);
  std::size_t pointOf(std::uint64_t usec);

  std::uint64_t window_usec_;
  std::uint64_t width_usec_;
  std::uint64_t begin_usec_ = 0;
  std::map<std::string, Device> devices_;
  std::map<std::pair<std::size_t, std::size_t>, GaugeBand> bands_;  // by series and track
  Windows windows_;
};

}  // namespace tev::host
