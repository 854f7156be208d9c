#pragma once

#include <string>

#include "simulator/scenario.h"

namespace simulator {

// Whether the name is that of a capture file, or the file begins like one.
bool isCapture(const std::string& path);

// The devices of a capture file, which play its samples: in their time, or with `samples` one per
// read. Throws ScenarioError when the file cannot be played.
Scenario recordedScenario(const std::string& path, ClockKind clock);

}  // namespace simulator
