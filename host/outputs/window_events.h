// Windows as events, for outputs that take blocks.
#pragma once

#include <cstdint>
#include <map>
#include <utility>
#include <vector>

#include "host/figures/windows.h"
#include "host/outputs/window_schema.h"

namespace tev::host {

class WindowEvents {
 public:
  // Throws UsageError, as WindowSchema does. `figures` must outlive this.
  WindowEvents(const Figures& figures, std::uint64_t length_usec);

  // Chooses the events that sample() needs.
  const Projection& projection() const { return figures_.projection(); }

  // Of the blocks.
  const SchemaView& schema() const { return schema_.view(); }

  // To be called with each event after the figures have received it.
  void sample(const Event& event, const Series& series);

  // The windows that are complete by now, as blocks in the order of their begins. Valid until the
  // next call.
  Blocks update(std::uint64_t now_usec);

  // All others, at the end of the run.
  Blocks end();

 private:
  struct Records {
    std::vector<std::uint8_t> bytes;
    std::size_t count = 0;
  };

  void add(const SeriesWindow& window);
  Blocks takeBlocks();

  const Figures& figures_;
  WindowSchema schema_;
  Windows windows_;
  std::vector<std::vector<std::uint8_t>> keys_;  // by the series' number; empty: not known yet
  // By the begin of the windows and the number of the series' type.
  std::map<std::pair<std::uint64_t, std::size_t>, Records> complete_;
  std::vector<std::uint8_t> blocks_;
};

}  // namespace tev::host
