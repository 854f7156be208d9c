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
    : spool_(std::move(options), std::move(head), dropped),
      memory_(most_bytes, std::move(dropped)) {}

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
  while (const Batch* const oldest = memory_.oldest()) {
    if (!spool_.keep(*oldest)) return false;
    memory_.takeOldest();
  }
  return true;
}

std::optional<StoredBatch> SpoolAndMemory::next() {
  if (auto stored = spool_.next()) return numbered(*std::move(stored), 0);
  if (!spool_.isRead()) return std::nullopt;
  if (auto stored = memory_.next()) return numbered(*std::move(stored), 1);
  return std::nullopt;
}

void SpoolAndMemory::done(std::uint64_t number) {
  if (isInMemory(number))
    memory_.done(number / 2);
  else
    spool_.done(number / 2);
}

void SpoolAndMemory::close() {
  moveToSpool();  // what would not survive the end of the process
  memory_.close();
  spool_.close();
}

bool SpoolAndMemory::accountsFor(std::uint64_t number) const {
  return isInMemory(number) ? memory_.accountsFor(number / 2) : spool_.accountsFor(number / 2);
}

bool SpoolAndMemory::isEmpty() const {
  return spool_.isEmpty() && memory_.isEmpty();
}

}  // namespace tev::host
