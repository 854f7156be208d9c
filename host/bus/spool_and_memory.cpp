#include "host/bus/spool_and_memory.h"

#include <utility>

namespace tev::host {
namespace {

// A number is twice the number in its store; odd numbers are those of the memory.
StoredBatch numbered(StoredBatch stored, std::uint64_t in_memory) {
  stored.number = 2 * stored.number + in_memory;
  return stored;
}

bool isInMemory(std::uint64_t number) {
  return number % 2 != 0;
}

}  // namespace

SpoolAndMemory::SpoolAndMemory(SpoolOptions options, CaptureHead head, std::size_t most_bytes,
                               Dropped dropped)
    : dropped_(std::move(dropped)),
      spool_(std::move(options), std::move(head), dropped_),
      memory_(most_bytes, dropped_) {}

void SpoolAndMemory::push(Batch batch) {
  if (moveToSpool() && spool_.keep(batch)) return;
  // The disk may be full of old files.
  if (!memory_.hasRoomFor(batch.blocks.size()) && spool_.giveUpOldest() && moveToSpool() &&
      spool_.keep(batch))
    return;
  memory_.push(std::move(batch));
}

// False when batches remain that wait in memory.
bool SpoolAndMemory::moveToSpool() {
  if (sent_ && !sent_->is_in_spool) {
    if (!spool_.keep(sent_->stored.batch)) return false;
    sent_->is_in_spool = true;
  }
  while (const Batch* const oldest = memory_.oldest()) {
    if (!spool_.keep(*oldest)) return false;
    memory_.takeOldest();
  }
  return true;
}

std::optional<StoredBatch> SpoolAndMemory::next() {
  while (auto stored = spool_.next())
    if (!isCopy(*stored)) return numbered(*std::move(stored), 0);
  const Batch* const oldest = memory_.oldest();
  if (!spool_.isRead() || sent_ || !oldest) return std::nullopt;
  sent_ = Sent{{next_number_++, *oldest}, false, {}};
  memory_.takeOldest();
  return numbered(sent_->stored, 1);
}

// A batch that was sent from memory is not sent again from the spool.
bool SpoolAndMemory::isCopy(const StoredBatch& stored) {
  const auto isOf = [&](const Batch& batch) {
    return batch.run == stored.batch.run && batch.first == stored.batch.first;
  };
  if (sent_ && isOf(sent_->stored.batch)) {
    sent_->copy = stored.number;
    return true;
  }
  if (!copied_ || !isOf(*copied_)) return false;
  copied_.reset();
  spool_.done(stored.number);
  return true;
}

void SpoolAndMemory::done(std::uint64_t number) {
  if (!isInMemory(number)) return spool_.done(number / 2);
  if (!sent_ || sent_->stored.number != number / 2) return;
  if (sent_->copy)
    spool_.done(*sent_->copy);
  else if (sent_->is_in_spool)
    copied_ = std::move(sent_->stored.batch);
  sent_.reset();
}

void SpoolAndMemory::close() {
  moveToSpool();  // what would not survive the end of the process
  if (sent_ && !sent_->is_in_spool) dropped_(sent_->stored.batch);
  memory_.close();
  spool_.close();
}

bool SpoolAndMemory::accountsFor(std::uint64_t number) const {
  return isInMemory(number) || spool_.accountsFor(number / 2);
}

bool SpoolAndMemory::isEmpty() const {
  return spool_.isEmpty() && memory_.isEmpty() && !sent_;
}

std::uint64_t SpoolAndMemory::waitingBytes() const {
  return spool_.waitingBytes() + memory_.waitingBytes() +
         (sent_ ? sent_->stored.batch.blocks.size() : 0);
}

}  // namespace tev::host
