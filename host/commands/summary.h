// The figures of a whole run, for the person who started it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/events/event_source.h"
#include "host/events/projection.h"
#include "host/outputs/delivery.h"

namespace tev::host {

struct CpuTime {
  double user_seconds = 0;
  double system_seconds = 0;
};

// The CPU time of the whole process so far.
CpuTime cpuTime();

// Lines of text. `projection` is the one of the written events. `counts` come from the source.
std::string summarize(double elapsed_seconds, const CpuTime& cpu, const Delivery& delivery,
                      const Projection& projection,
                      const std::optional<std::vector<DeviceCounts>>& counts);

}  // namespace tev::host
