#include "host/fleet/parquet_worker.h"

#include <fmt/format.h>

#include <utility>

#include "host/fleet/notices.h"

namespace tev::host {

ParquetWorker::ParquetWorker(RangeFolder& folder, const RangeLimits& limits, Intake& intake,
                             Subscription& subscription, Patience patience)
    : folder_(folder),
      limits_(limits),
      intake_(intake),
      subscription_(subscription),
      patience_(std::move(patience)) {}

std::optional<std::int64_t> ParquetWorker::assigned(std::int32_t partition) {
  PartitionState state = folder_.recover(partition);
  for (const std::string& note : state.notes) speaker_.sayOnce(note, note);
  Partition& added = partitions_[partition] = {std::move(state.sequences), std::nullopt};
  if (state.next) added.range.emplace(*state.next);
  return state.next;
}

// What is half written is thrown away: the next owner reads it again.
void ParquetWorker::revoked(std::int32_t partition) {
  const auto found = partitions_.find(partition);
  if (found == partitions_.end()) return;
  noteRevoked(partition);
  if (found->second.range) thrown_away_ += found->second.range->counts();
  partitions_.erase(found);
}

void ParquetWorker::take(const PartitionMessage& message) {
  const auto found = partitions_.find(message.partition);
  if (found == partitions_.end()) return;
  Partition& partition = found->second;
  if (!partition.range) partition.range.emplace(message.offset);
  if (message.offset < partition.range->end())
    throw RunError(fmt::format(
        "partition {} goes on at offset {}, and its messages up to {} were taken already; a topic "
        "that was made anew needs another folder",
        message.partition, message.offset, partition.range->end() - 1));
  if (!partition.range->isEmpty() && partition.range->isFull(limits_))
    closeRange(message.partition, partition);
  const std::int64_t missing = message.offset - partition.range->end();
  try {
    add(partition, message);
  } catch (const Rejected& rejected) {
    ++partition.range->counts().rejected[static_cast<std::size_t>(rejected.cause())];
    sayRejected(speaker_, message, rejected);
  }
  if (missing > 0) {
    partition.range->counts().missing_offsets += static_cast<std::uint64_t>(missing);
    sayMissing(speaker_, message, missing);
  }
  partition.range->pass(message.offset);
}

void ParquetWorker::add(Partition& partition, const PartitionMessage& message) {
  const MessageHead head = headOf(message.message);
  const Arrival arrival = partition.sequences.judge(head);
  if (arrival.kind == Arrival::Kind::repeat) {
    ++partition.range->counts().repeats;
    partition.range->counts().repeated += head.events;
    sayArrival(speaker_, head, arrival);
    return;
  }
  try {
    const Contents contents = intake_.read(message.message, head, arrival.taken);
    if (partition.range->isFull(limits_, head, contents)) closeRange(message.partition, partition);
    partition.range->add(message.message, head, arrival, contents);
    noteTaken(message.partition, head, contents, arrival);
  } catch (const Rejected& rejected) {
    if (!rejected.areEventsKnown()) throw;
    partition.range->noteLoss(head, arrival);
    partition.sequences.take(head);
    throw;
  }
  partition.sequences.take(head);
  sayArrival(speaker_, head, arrival);
}

void ParquetWorker::closeRange(std::int32_t number, Partition& partition) {
  publish(number, partition);
  const std::int64_t end = partition.range->end();
  written_ += partition.range->counts();
  partition.range.emplace(end);
  // The files' names decide where the next owner begins, so a commit that fails does no harm.
  if (std::string problem; !subscription_.commit(number, end, problem))
    speaker_.sayOnce(
        "commit", fmt::format("the group did not take note of partition {}: {}", number, problem));
}

void ParquetWorker::publish(std::int32_t number, const Partition& partition) {
  using Clock = std::chrono::steady_clock;
  std::optional<Clock::time_point> failing;
  while (true) {
    try {
      folder_.publish(number, *partition.range, partition.sequences);
      speaker_.forget("writing");
      return;
    } catch (const RunError& error) {
      speaker_.sayOnce("writing", fmt::format("{}; trying again, nothing is lost", error.what()));
      if (!failing) failing = Clock::now();
      if (!patience_(Clock::now() - *failing)) throw;
    }
  }
}

FleetCounts ParquetWorker::counts() const {
  FleetCounts sum = written_;
  sum += thrown_away_;
  for (const auto& [number, partition] : partitions_)
    if (partition.range) sum += partition.range->counts();
  return sum;
}

std::size_t ParquetWorker::memory() const {
  std::size_t bytes = 0;
  for (const auto& [number, partition] : partitions_)
    if (partition.range) bytes += partition.range->memory();
  return bytes;
}

}  // namespace tev::host
