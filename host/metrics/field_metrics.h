// Metrics of the fields of events.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "host/figures/figures.h"
#include "host/metrics/family.h"
#include "host/metrics/metric_names.h"
#include "host/metrics/recent_peak.h"

namespace tev::host {

// The families of a field depend on its kind. A counter has its total, its unknown steps and the
// highest rate of any single sample lately; a gauge has its value, and the smallest and the largest
// one lately. A field of which the kind is not decided yet has none. Fields of other numeric types
// than those that the figures follow are gauges.
//
// Names do not depend on the devices: tev_KIND_FIELD, where KIND is that of the type ("device",
// "plane"), so that the sum over the planes and the total of their device are different metrics.
class FieldMetrics {
 public:
  // Makes the names. Throws UsageError when two fields would have the same one. `figures` must
  // outlive this.
  FieldMetrics(const Figures& figures, std::chrono::seconds peak, MetricNames& names);

  // To be called with each event, after the figures have received it.
  void sample(const Event& event, const Series& series);

  // The metrics of these devices. Totals never fall.
  std::vector<MetricFamily> families(std::uint64_t now_usec, const std::set<std::string>& devices);

 private:
  static constexpr std::size_t kNone = SIZE_MAX;

  // One column of a type. The numbers of its families are indexes in families_.
  struct Field {
    const Column* column;
    int track;  // in the figures; -1: they do not follow it
    std::size_t total = kNone;
    std::size_t unknown_steps = kNone;
    std::size_t peak = kNone;
    std::size_t value = kNone;
    std::size_t smallest = kNone;
    std::size_t largest = kNone;
  };

  // One field of a series.
  struct State {
    explicit State(std::size_t seconds) : largest(seconds), smallest(seconds) {}

    std::uint64_t total = 0;          // as published
    std::uint64_t unknown_steps = 0;  // as published
    std::optional<double> last_rate;  // per second, until the next sample confirms it
    double value = 0;                 // of a field without a track
    RecentPeak largest;               // rate or value
    RecentPeak smallest;              // value, with the opposite sign
    bool is_published = true;         // false: another type has a metric of that name
  };

  struct SeriesState {
    const Series* series = nullptr;  // null until the first sample
    std::shared_ptr<const Labels> labels;
    std::vector<State> fields;  // as those of the type
  };

  void addField(const TypeView& type, const Column& column, MetricNames& names);
  std::size_t family(const std::string& name, MetricType type, const std::string& help,
                     const std::string& owner, MetricNames& names);
  void add(SeriesState& added, const Series& series);
  void publish(const Field& field, const SeriesState& series, State& state, std::uint64_t second,
               std::vector<MetricFamily>& families) const;

  const Figures& figures_;
  std::chrono::seconds peak_;
  std::vector<MetricFamily> families_;  // without metrics
  std::map<std::string, std::size_t> number_of_;
  std::vector<std::vector<Field>> fields_;              // by the type's number
  std::vector<std::vector<std::string>> label_names_;   // by the type's number
  std::vector<SeriesState> series_;                     // by the series' number
  std::set<std::pair<std::size_t, Labels>> published_;  // the family of a field's total or value
};

}  // namespace tev::host
