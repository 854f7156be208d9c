#include "host/fleet/stream_worker.h"

#include <fmt/format.h>

#include <string>

#include "host/fleet/notices.h"

namespace tev::host {

std::optional<std::int64_t> StreamWorker::assigned(std::int32_t partition) {
  partitions_.insert_or_assign(partition, Partition{});
  return std::nullopt;
}

void StreamWorker::take(const PartitionMessage& message) {
  const auto found = partitions_.find(message.partition);
  if (found == partitions_.end()) return;
  Partition& partition = found->second;
  ++counts_.messages;
  if (partition.next && message.offset > *partition.next) {
    const std::int64_t missing = message.offset - *partition.next;
    counts_.missing_offsets += static_cast<std::uint64_t>(missing);
    sayMissing(speaker_, message, missing);
  }
  try {
    write(partition, message);
  } catch (const Rejected& rejected) {
    ++counts_.rejected[static_cast<std::size_t>(rejected.cause())];
    sayRejected(speaker_, message, rejected);
  }
  partition.next = message.offset + 1;
  partition.is_committed = false;
}

void StreamWorker::revoked(std::int32_t partition) {
  if (partitions_.erase(partition) > 0) noteRevoked(partition);
}

void StreamWorker::write(Partition& partition, const PartitionMessage& message) {
  const MessageHead head = headOf(message.message);
  const Arrival arrival = partition.sequences.judge(head);
  if (arrival.kind == Arrival::Kind::repeat) {
    ++counts_.repeats;
    counts_.repeated += head.events;
    sayArrival(speaker_, head, arrival);
    return;
  }
  const auto pass = [&] {
    // The events before the first message of a run may have been written by the worker before.
    if (arrival.lost > 0 && !arrival.is_first) {
      ++counts_.gaps;
      counts_.lost += arrival.lost;
    }
    partition.sequences.take(head);
  };
  try {
    const Contents contents = intake_.read(message.message, head, arrival.taken);
    sink_.take(head, contents, arrival.taken);
    noteTaken(message.partition, head, contents, arrival);
  } catch (const Rejected& rejected) {
    if (rejected.areEventsKnown()) pass();
    throw;
  }
  pass();
  counts_.events += head.events - arrival.taken;
  counts_.repeated += arrival.taken;
  counts_.bytes += head.size;
  if (!arrival.is_first) sayArrival(speaker_, head, arrival);
}

void StreamWorker::update() {
  sink_.flush();
  for (auto& [number, partition] : partitions_) {
    if (partition.is_committed) continue;
    std::string problem;
    partition.is_committed = subscription_.commit(number, *partition.next, problem);
    if (!partition.is_committed)
      speaker_.sayOnce("commit",
                       fmt::format("the group did not take note of partition {}, so its messages "
                                   "may be written again: {}",
                                   number, problem));
  }
}

}  // namespace tev::host
