#include "host/fleet/notices.h"

#include <fmt/format.h>

namespace tev::host {

void sayRejected(Speaker& speaker, const PartitionMessage& message, const Rejected& rejected) {
  speaker.sayOnce(nameOf(rejected.cause()),
                  fmt::format("the message at offset {} of partition {} is skipped, as others like "
                              "it will be: {}",
                              message.offset, message.partition, rejected.what()));
}

void sayMissing(Speaker& speaker, const PartitionMessage& message, std::int64_t offsets) {
  speaker.sayOnce("offsets", fmt::format("the bus no longer has the {} messages before offset {} "
                                         "of partition {}",
                                         offsets, message.offset, message.partition));
}

void sayArrival(Speaker& speaker, const MessageHead& head, const Arrival& arrival) {
  if (arrival.kind != Arrival::Kind::gap || arrival.is_first) return;
  speaker.sayOnce("gap", fmt::format("{} events of {} are missing, from number {} of run {} "
                                     "on; other gaps are only counted",
                                     arrival.lost, head.run.source, head.first - arrival.lost,
                                     runText(head.run.start)));
}

}  // namespace tev::host
