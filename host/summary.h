// What a run came to, for the person who started it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/delivery.h"
#include "host/plugin.h"

namespace tev::host {

struct CpuTime {
  double user_seconds = 0;
  double system_seconds = 0;
};

// Of the whole process so far.
CpuTime cpuTime();

// Lines of text. `counts` is what the plug-in itself says about its devices; nothing when it does
// not.
std::string summarize(double elapsed_seconds, const CpuTime& cpu, const Delivery& delivery,
                      const std::optional<std::vector<DeviceCounts>>& counts);

}  // namespace tev::host
