// The figures since a recent update, as a screen shows them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

#include "host/figures/figures.h"

namespace tev::host {

// One field of one series.
struct Reading {
  FieldKind kind = FieldKind::undecided;
  std::uint64_t value = 0;  // the last sample
  bool has_moved = false;   // in this run

  // Of a field that counts:
  std::uint64_t total = 0;           // since the start of the run
  bool is_lower_bound = false;       // the total
  std::uint64_t increase = 0;        // the sum of the known steps
  std::optional<double> per_second;  // nothing: not known
  bool has_unknown = false;          // some of the steps are unknown
  bool is_uncertain = false;         // it may go round more than once between two samples

  bool counts() const { return kind == FieldKind::counter || kind == FieldKind::increase; }
};

class RecentFigures {
 public:
  // A reading covers at least `span_usec`, once there are samples of that time, and at least the
  // last update that brought samples. `figures` must outlive this.
  explicit RecentFigures(const Figures& figures, std::uint64_t span_usec = 0)
      : figures_(figures), span_usec_(span_usec) {}

  // To be called after the samples of each update.
  void update(std::uint64_t now_usec);

  // Whether the last update brought samples of the series.
  bool isFresh(const Series& series) const;

  // `track` is an index of SeriesFigures::tracks. When a step is unknown, so is the rate.
  Reading of(const Series& series, std::size_t track) const;

  // The rate is that of the known steps.
  Reading ofWholeRun(const Series& series, std::size_t track) const;

 private:
  struct Marks {
    std::uint64_t samples = 0;  // at the last update
    bool is_fresh = false;
    std::uint64_t now_usec = 0;     // when `now` was taken
    std::vector<TrackMark> before;  // by track: where the readings begin
    std::vector<TrackMark> now;
  };

  Reading since(const TrackMark& mark, const Series& series, std::size_t track) const;

  const Figures& figures_;
  std::uint64_t span_usec_;
  std::deque<Marks> marks_;  // by the series' number
};

}  // namespace tev::host
