// The figures that are derived from the samples of a run: totals and rates of counters.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "host/events/projection.h"
#include "host/events/series.h"
#include "host/figures/counting_options.h"
#include "host/figures/track.h"

namespace tev::host {

// What the schema and the options say of the field, apart from patterns.
FieldKind declaredKind(const Column& column, const CountingOptions& options);

// The figures of one series.
struct SeriesFigures {
  const Series* series = nullptr;  // null until the first sample
  std::uint64_t samples = 0;
  std::uint64_t first_usec = 0;  // time stamps of the first and of the last sample
  std::uint64_t last_usec = 0;
  std::uint64_t step_usec = 0;  // from the sample before the last one; 0: not known
  std::uint64_t missing = 0;    // samples between these two, by the interval
  // The sample before the last one may have been read later than its time stamp says, so its rates
  // may be too high, and those of the last one too low.
  bool after_slow_read = false;
  std::vector<Track> tracks;    // in the order of Figures::columns()
  std::vector<bool> uncertain;  // by track: it may go round more than once between two samples
};

class Figures {
 public:
  // Whether a counter may go round more than once between two samples. Its rates are then not
  // certain.
  using Doubt = std::function<bool(const Series&, const Column&)>;

  // Follows the unsigned columns of 32 and 64 bits that the projection chooses and that do not
  // belong to the key, unless the options say that nothing shows them. Throws UsageError, with the
  // names that exist, when a pattern does not match any of them. `projection` must outlive this.
  //
  // `interval_usec` is the time between two samples; 0: not known.
  Figures(const Projection& projection, const CountingOptions& options,
          std::uint64_t interval_usec = 0, Doubt doubt = {});

  const Projection& projection() const { return projection_; }

  // 0: not known.
  std::uint64_t intervalUsec() const { return interval_usec_; }

  // To be called with each event that the projection chooses, before its figures are used.
  void sample(const Event& event, const Series& series);

  // By the series' number. Addresses do not change.
  const SeriesFigures& of(const Series& series) const { return all_[series.number]; }
  const std::deque<SeriesFigures>& all() const { return all_; }

  // The columns of the type that are followed.
  std::vector<const Column*> columns(const TypeView& type) const;

  // The index of the track of a projected column; -1: it is not followed.
  int trackOf(const TypeView& type, const Column& column) const;

  // What is known of the kind of a track's field by now.
  FieldKind kindOf(const TypeView& type, std::size_t track) const {
    return judges_[followed_[type.number][track].judge].kind();
  }

 private:
  struct Followed {
    const Column* column;
    std::size_t judge;  // index in judges_
  };

  void add(const Series& series);

  const Projection& projection_;
  std::uint64_t interval_usec_;
  Doubt doubt_;
  std::vector<std::vector<Followed>> followed_;  // by the type's number
  std::deque<KindJudge> judges_;
  std::deque<SeriesFigures> all_;
};

}  // namespace tev::host
