// Keeps batches in memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <unordered_map>

#include "host/bus/batch_store.h"

namespace tev::host {

class MemoryStore final : public BatchStore {
 public:
  // At most `most_bytes` of event blocks. When they are used up, the oldest batch is given up, but
  // not one that was handed out.
  MemoryStore(std::size_t most_bytes, Dropped dropped);

  void push(Batch batch) override;
  std::optional<StoredBatch> next() override;
  void done(std::uint64_t number) override;
  void close() override;
  bool accountsFor(std::uint64_t) const override { return true; }
  // Whether a batch with so many bytes of event blocks can be added without giving up another one.
  bool hasRoomFor(std::size_t bytes) const { return bytes_ + bytes <= most_bytes_; }

  // The oldest batch that was not handed out; null when there is none. The other function takes it
  // out.
  const Batch* oldest() const { return waiting_.empty() ? nullptr : &waiting_.front(); }
  void takeOldest();

  bool isEmpty() const override { return waiting_.empty() && handed_out_.empty(); }
  std::uint64_t waitingBytes() const override { return bytes_; }
  std::string leftText() const override { return ""; }

 private:
  void dropOldest();

  std::size_t most_bytes_;
  Dropped dropped_;
  std::deque<Batch> waiting_;
  std::unordered_map<std::uint64_t, Batch> handed_out_;  // by number
  std::size_t bytes_ = 0;                                // of all
  std::uint64_t next_number_ = 0;
};

}  // namespace tev::host
