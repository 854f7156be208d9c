// Figures of short spans of time: a record per series and window instead of one per sample.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host/figures/buckets.h"
#include "host/figures/comparison.h"
#include "host/figures/figures.h"

namespace tev::host {

// One field of one series in one window.
struct FieldWindow {
  // Of a counter. A step belongs to the window in which it ends.
  double highest_per_usec = 0;        // of any single step
  std::uint64_t highest_at_usec = 0;  // time stamp at the end of that step; 0: none
  std::uint64_t sum = 0;              // of the known steps
  std::uint64_t known_usec = 0;       // the time that they took
  std::uint64_t unknown = 0;          // steps; when there are any, `sum` is a lower bound
  // Of a gauge, and of a field that is undecided.
  std::uint64_t min = UINT64_MAX;
  std::uint64_t max = 0;
  double values = 0;  // their sum

  // Increase per second over the known steps.
  std::optional<double> meanPerSecond() const {
    if (known_usec == 0) return std::nullopt;
    return static_cast<double>(sum) * 1e6 / static_cast<double>(known_usec);
  }
};

// One series in one window.
struct SeriesWindow {
  const SeriesFigures* series = nullptr;
  std::uint64_t begin_usec = 0;  // a multiple of the window's length, since the Unix epoch
  std::uint64_t end_usec = 0;    // the first microsecond after the window
  std::uint64_t samples = 0;
  std::uint64_t missing = 0;        // samples, by the interval
  std::vector<FieldWindow> fields;  // by track
  std::vector<Buckets> buckets;     // by track; empty for a counter

  double mean(std::size_t field) const {
    return fields[field].values / static_cast<double>(samples);
  }
  // Between the smallest and the largest value.
  std::uint64_t quantile(std::size_t field, double q) const;
};

// Whether the series begins or ends within this window, by more than an interval and a half. A
// series ends only with the run: `is_last`. `interval_usec` may be 0: not known.
bool isPartial(const SeriesWindow& window, std::uint64_t interval_usec, bool is_last);

struct DeviceWindow {
  std::string device;
  std::uint64_t begin_usec = 0;
  std::uint64_t end_usec = 0;
  std::vector<Comparison> fields;
};

class Windows {
 public:
  struct Receiver {
    std::function<void(const SeriesWindow&)> series;
    std::function<void(const DeviceWindow&)> device;
  };

  // The receiver gets each window when it is complete. `figures` must outlive this.
  Windows(const Figures& figures, std::uint64_t length_usec, Receiver receiver);

  // To be called with each event after the figures have received it.
  void sample(const Event& event, const Series& series);

  // Completes the windows that ended before this time. Samples may come later than their time
  // stamps say, so it should be well in the past.
  void complete(std::uint64_t before_usec);

  // Completes the windows for which no late samples are expected any more.
  void update(std::uint64_t now_usec);

  // Completes all windows: the run has ended.
  void end();

  // Of a window that the receiver gets.
  bool isPartial(const SeriesWindow& window) const {
    return host::isPartial(window, figures_.intervalUsec(), is_ending_);
  }

 private:
  // What is kept of a plane until all planes of its device are complete.
  struct Group {
    std::string device;
    std::size_t series = 0;        // number of planes
    std::uint64_t begin_usec = 0;  // of the window in `fields`
    std::size_t complete = 0;      // planes in `fields`
    std::vector<Comparison> fields;
  };

  // The highest rate of a field before the sample that made it higher. That sample may turn out to
  // be of a slow read.
  struct HighestBefore {
    std::uint64_t sample = 0;  // the number of that sample in the window
    double per_usec = 0;
    std::uint64_t at_usec = 0;
  };

  // A series and its window, which is closed when it has no samples.
  struct Current {
    SeriesWindow window;
    std::vector<TrackMark> begin;               // by track: before the first step of the window
    std::vector<HighestBefore> highest_before;  // by track
  };

  void add(Current& added, const Series& series);
  void open(Current& current, std::uint64_t timestamp_usec);
  void raiseHighest(Current& current, std::size_t field, double per_usec);
  void takeBackRates(Current& current);
  void close(Current& current, const std::vector<TrackMark>& end);
  void addToGroup(const SeriesWindow& window);
  void emit(Group& group);
  Group& groupOf(const std::string& device);

  const Figures& figures_;
  std::uint64_t length_usec_;
  Receiver receiver_;
  std::vector<Current> current_;  // by the series' number
  std::vector<Group> groups_;
  bool is_ending_ = false;
};

}  // namespace tev::host
