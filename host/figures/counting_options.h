#pragma once

#include <string>
#include <vector>

namespace tev::host {

// What the user says about the fields. Patterns are those of counter sets: a name, "^PREFIX" or
// "SUFFIX$".
struct CountingOptions {
  std::vector<std::string> counters;  // patterns
  std::vector<std::string> gauges;    // patterns
  bool clear_on_read = false;         // each sample is the increase since the previous one
  bool follow = true;                 // false: nothing shows the figures of fields
};

}  // namespace tev::host
