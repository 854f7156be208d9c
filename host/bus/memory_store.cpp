#include "host/bus/memory_store.h"

#include <utility>

namespace tev::host {

MemoryStore::MemoryStore(std::size_t most_bytes, Dropped dropped)
    : most_bytes_(most_bytes), dropped_(std::move(dropped)) {}

void MemoryStore::push(Batch batch) {
  while (!waiting_.empty() && bytes_ + batch.blocks.size() > most_bytes_) dropOldest();
  bytes_ += batch.blocks.size();
  waiting_.push_back(std::move(batch));
  // Those that were handed out may need all the room.
  if (bytes_ > most_bytes_ && !handed_out_.empty()) dropOldest();
}

void MemoryStore::dropOldest() {
  dropped_(waiting_.front());
  takeOldest();
}

void MemoryStore::takeOldest() {
  bytes_ -= waiting_.front().blocks.size();
  waiting_.pop_front();
}

std::optional<StoredBatch> MemoryStore::next() {
  if (waiting_.empty()) return std::nullopt;
  const std::uint64_t number = next_number_++;
  Batch& batch = handed_out_[number] = std::move(waiting_.front());
  waiting_.pop_front();
  return StoredBatch{number, batch};
}

void MemoryStore::done(std::uint64_t number) {
  const auto found = handed_out_.find(number);
  if (found == handed_out_.end()) return;
  bytes_ -= found->second.blocks.size();
  handed_out_.erase(found);
}

void MemoryStore::close() {
  while (!waiting_.empty()) dropOldest();
  for (const auto& [number, batch] : handed_out_) dropped_(batch);
  handed_out_.clear();
  bytes_ = 0;
}

}  // namespace tev::host
