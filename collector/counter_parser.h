#pragma once

#include "collector/slot_info.h"

namespace tev::events::multipath {

// Makes the counters of `slot`, their counts and their name lists out of its description lines.
//
// A line reads "name, description" or "name, description, plane N". A line of another form is a
// device counter, at the worst with a warning. std::out_of_range ("stoul") for a plane number that
// an unsigned long cannot hold.
void parseCounters(SlotInfo& slot);

}  // namespace tev::events::multipath
