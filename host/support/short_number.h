#pragma once

#include <string>

namespace tev::host {

// A number in at most five characters and a sign: "0.25", "12345", "1.23M", "123G".
std::string shortNumber(double number);

}  // namespace tev::host
