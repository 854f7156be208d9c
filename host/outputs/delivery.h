// Passes events from the source to the outputs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

#include "host/outputs/output.h"

namespace tev::host {

// Hands blocks, and the events in them, to all outputs that take them. Decodes once for all of
// them, and not at all when none of them takes events.
class Delivery {
 public:
  struct SeriesCount {
    const Series* series;
    std::vector<Output*> takers;   // the outputs whose projections choose the series
    std::uint64_t arrived = 0;     // events
    std::uint64_t written = 0;     // of these, those that the takers got
    std::uint64_t first_usec = 0;  // time stamps of the first and the last event that arrived
    std::uint64_t last_usec = 0;

    bool isTaken() const { return !takers.empty(); }
  };

  struct TypeTotals {
    std::uint64_t events = 0;
    std::uint64_t bytes = 0;  // of the events alone
  };

  // Each series ends after `samples` events: the outputs get no more of it. Nothing: no end. The
  // schema and the outputs must outlive this.
  Delivery(const SchemaView& schema, std::vector<Output*> outputs,
           std::optional<std::uint64_t> samples);

  // To all outputs.
  void begin();
  void take(Blocks blocks);  // throws RunError for malformed blocks
  void update(const RunStatus& status);
  void end(const RunStatus& status);
  void leave();

  // Whether every series that some output takes has had its samples, or one series has had so
  // many more that a device without its samples has most likely gone.
  bool isComplete() const;

  // Whether events arrive, but none of them is from a device that an output takes.
  bool isHopeless() const;

  // Of all devices, and of the types that some output takes.
  const std::deque<SeriesCount>& series() const { return counts_; }

  // Of the events that outputs got, by the type's number.
  const std::vector<TypeTotals>& totals() const { return totals_; }

 private:
  void takeEvent(const Event& event);
  SeriesCount& countOf(const Event& event);

  const SchemaView& schema_;
  std::vector<Output*> outputs_;
  std::optional<std::uint64_t> samples_;
  std::vector<bool> type_is_taken_;  // by the type's number
  SeriesTable series_;
  std::deque<SeriesCount> counts_;  // by the series' number
  std::vector<TypeTotals> totals_;
};

}  // namespace tev::host
