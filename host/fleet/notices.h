// What the user is told about messages, once a kind.
#pragma once

#include <cstdint>

#include "host/bus/message.h"
#include "host/bus/subscription.h"
#include "host/fleet/fleet_counts.h"
#include "host/fleet/sequences.h"
#include "host/fleet/speaker.h"

namespace tev::host {

void sayRejected(Speaker& speaker, const PartitionMessage& message, const Rejected& rejected);
void sayMissing(Speaker& speaker, const PartitionMessage& message, std::int64_t offsets);
void sayArrival(Speaker& speaker, const MessageHead& head, const Arrival& arrival);

}  // namespace tev::host
