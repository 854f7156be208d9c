// The figures of all nodes whose events a worker takes, added up.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "host/events/series.h"
#include "host/fleet/observer.h"
#include "host/fleet/sequences.h"
#include "host/metrics/field_sums.h"

namespace tev::host {

// Follows each counter of each source. A source begins anew with each of its runs, and when its
// partition comes back. The one without a message for the longest time makes room for another.
//
// Memory: about 110 bytes for each counter of a source.
class Aggregate final : public FleetObserver {
 public:
  static constexpr std::size_t kMostBytes = std::size_t{2} << 30;
  static constexpr std::size_t kMostBytesOfSource = std::size_t{64} << 20;
  static constexpr std::size_t kMostSeries = 16'384;  // of a source
  static constexpr std::size_t kMostKinds = 256;      // of types

  using Clock = std::function<std::uint64_t()>;  // microseconds since the Unix epoch
  static std::uint64_t now();

  // `recent` is the time over which extremes of single samples are given.
  explicit Aggregate(std::chrono::seconds recent,
                     std::size_t most_sources = Sequences::kMostSources, Clock clock = now);

  void taken(std::int32_t partition, const MessageHead& head, const Contents& contents,
             std::uint64_t skipped) override;
  void revoked(std::int32_t partition) override;

  // Totals never fall.
  std::vector<MetricFamily> families();

  // Of the state of the sources, estimated.
  std::size_t memory() const { return bytes_; }

 private:
  // What becomes of the events of a type.
  struct TypePlan {
    struct Field {
      const Column* column;
      FieldSum* sum;
    };
    std::uint64_t* events;
    std::vector<Field> tracked;
    std::vector<Field> numbers;
  };
  struct Plan {
    std::shared_ptr<const FleetSchema> schema;
    std::vector<TypePlan> types;  // by the type's number
  };

  struct SeriesState {
    std::uint64_t last_usec = 0;  // 0: no sample yet
    std::uint64_t step_usec = 0;
    std::vector<Track> tracks;
  };
  struct Source {
    std::string name;
    std::int32_t partition = 0;
    std::uint64_t run = 0;
    const Plan* plan = nullptr;
    std::uint64_t seen_usec = 0;  // by the worker's clock
    SeriesTable table;
    std::vector<SeriesState> series;               // by the series' number
    std::unordered_set<std::string_view> devices;  // names in the table
    std::size_t bytes = 0;
  };
  using Sources = std::list<Source>;

  const Plan& planOf(const std::shared_ptr<const FleetSchema>& schema);
  std::uint64_t* eventsOf(const std::string& kind);
  Source& sourceOf(std::int32_t partition, const RunId& run, const Plan& plan);
  Source& begin(std::int32_t partition, const RunId& run, const Plan& plan);
  void take(Source& source, const Event& event);
  SeriesState& stateOf(Source& source, const Series& series);
  Sources::iterator forget(Sources::iterator source);
  std::optional<double> ageSeconds(std::uint64_t now_usec) const;

  std::uint64_t recent_usec_;
  std::size_t most_sources_;
  Clock clock_;
  MetricNames names_;
  FieldSums fields_;
  std::map<std::string, std::uint64_t> events_;  // by kind of type
  std::map<const FleetSchema*, Plan> plans_;
  std::size_t plan_bytes_ = 0;  // of the schemas
  Sources sources_;             // the one with the last message first
  std::unordered_map<std::string_view, Sources::iterator> by_name_;
  std::size_t bytes_ = 0;
  std::size_t devices_ = 0;
  std::uint64_t newest_usec_ = 0;  // time stamp; 0: none
  std::uint64_t forgotten_ = 0;    // sources
  std::uint64_t left_out_ = 0;     // events
};

}  // namespace tev::host
