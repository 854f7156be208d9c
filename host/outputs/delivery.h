// Passes events from the source to the outputs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

#include "host/figures/figures.h"
#include "host/figures/health.h"
#include "host/outputs/output.h"

namespace tev::host {

// Passes blocks and their events to the outputs. Blocks are decoded once for all outputs, and only
// when an output takes events.
class Delivery {
 public:
  struct SeriesCount {
    const Series* series;
    std::vector<Output*> takers;   // the outputs whose projections choose the series
    std::uint64_t arrived = 0;     // events
    std::uint64_t written = 0;     // events that were passed to the takers
    std::uint64_t first_usec = 0;  // time stamps of the first and the last event that arrived
    std::uint64_t last_usec = 0;

    bool is_followed = false;  // the figures get the events

    bool isTaken() const { return !takers.empty(); }
  };

  struct TypeTotals {
    std::uint64_t events = 0;
    std::uint64_t bytes = 0;  // of the events, without block headers
  };

  // If `samples` is given, the outputs get at most that many events of each series. `figures` gets
  // each event before the outputs; a device is silent after `patience_usec` without a sample. The
  // schema, the outputs and the figures must outlive this.
  Delivery(const SchemaView& schema, std::vector<Output*> outputs, Figures& figures,
           std::optional<std::uint64_t> samples, std::uint64_t patience_usec);

  // Each of these calls is passed to all outputs.
  void begin();
  void take(Blocks blocks);  // throws RunError for malformed blocks
  void update(RunStatus status);
  void redraw(RunStatus status);
  void end(RunStatus status);
  void leave();

  // An event of this series, which was passed to the outputs, did not reach the file.
  void takeBack(std::size_t series);

  // Whether every series that an output takes has reached `samples`. A device that fails or is
  // silent is given up. Also true when one series has so many more samples that the devices of the
  // other series have probably stopped delivering.
  bool isComplete() const;

  // Whether events arrive, but only from devices that the outputs do not take.
  bool isHopeless() const;

  // The series of all devices, for the types that an output takes.
  const std::deque<SeriesCount>& series() const { return counts_; }

  // The totals of the events that were passed to outputs, by the type's number.
  const std::vector<TypeTotals>& totals() const { return totals_; }

  // The devices that the figures' projection chooses, as of the last update.
  const HealthWatch& health() const { return health_; }

 private:
  bool isComplete(const std::string& device) const;
  bool isGivenUp(const DeviceHealth& device) const;
  void watchHealth(RunStatus& status);
  void takeEvent(const Event& event);
  SeriesCount& countOf(const Event& event);

  const SchemaView& schema_;
  std::vector<Output*> outputs_;
  Figures& figures_;
  HealthWatch health_;
  std::optional<std::uint64_t> samples_;
  std::vector<bool> type_is_taken_;  // by the type's number
  SeriesTable series_;
  std::deque<SeriesCount> counts_;  // by the series' number
  std::vector<TypeTotals> totals_;
};

}  // namespace tev::host
