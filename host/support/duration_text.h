#pragma once

#include <chrono>
#include <string>

namespace tev::host {

// A time in its best unit, with three digits: "1 s", "21.5 ms", "3.2 us".
std::string durationText(std::chrono::duration<double> time);

}  // namespace tev::host
