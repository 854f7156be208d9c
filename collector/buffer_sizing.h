#pragma once

#include <cstdint>

#include "collector/configuration.h"

namespace tev::events::multipath {

// The number of samples that one half of a device's double buffer holds. `sample_size`: bytes of
// one device event and all plane events of a sample. Throws std::length_error when the number
// exceeds 64 bits.
std::uint64_t samplesPerBuffer(const Configuration& configuration, std::uint64_t sample_size);

}  // namespace tev::events::multipath
