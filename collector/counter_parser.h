#pragma once

#include "collector/slot_info.h"

namespace tev::events::multipath {

// Sets the counters of `slot`, their counts and their name lists from its description lines.
//
// The form of a line is "name, description" or "name, description, plane N". A line of another form
// is a device counter, in some cases with a warning. Throws std::out_of_range ("stoul") for a plane
// number that an unsigned long cannot hold.
void parseCounters(SlotInfo& slot);

}  // namespace tev::events::multipath
