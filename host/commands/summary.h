// The figures of a whole run, for the person who started it.
#pragma once

#include <string>

#include "host/figures/figures.h"
#include "host/outputs/delivery.h"

namespace tev::host {

struct CpuTime {
  double user_seconds = 0;
  double system_seconds = 0;
};

// The CPU time of the whole process so far.
CpuTime cpuTime();

// Lines of text, from the last update.
std::string summarize(double elapsed_seconds, const CpuTime& cpu, const Delivery& delivery,
                      const Figures& figures);

}  // namespace tev::host
