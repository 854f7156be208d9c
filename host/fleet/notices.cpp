#include "host/fleet/notices.h"

#include <fmt/format.h>

#include "host/support/text.h"

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
  const std::string& source = head.run.source;
  const std::string run = runText(head.run.start);
  if (arrival.taken > 0)
    speaker.sayOnce("repeat",
                    fmt::format("{} of {} came again and are dropped, from number {} of "
                                "run {} on; other repeats are only counted",
                                counted(arrival.taken, "event"), source, head.first, run));
  if (arrival.kind != Arrival::Kind::gap) return;
  if (arrival.is_first)
    speaker.sayOnce("begin", fmt::format("the topic does not have the first {} of run {} of {}; "
                                         "other runs are only counted",
                                         counted(arrival.lost, "event"), run, source));
  else
    speaker.sayOnce(
        "gap", fmt::format("{} of {} are missing, from number {} of run {} on; other "
                           "gaps are only counted",
                           counted(arrival.lost, "event"), source, head.first - arrival.lost, run));
}

}  // namespace tev::host
