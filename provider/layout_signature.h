#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "tev/schema.h"

namespace tev::events::multipath {

// A number that identifies equal event layouts: FNV-1a, 64 bits, over the texts of all fields. A
// field without a name, description or type ends the text.
std::uint64_t layoutSignature(std::span<const tev_type_field_info_t> fields);

}  // namespace tev::events::multipath
