// Keeps batches in a spool, and in memory as long as its disk does not take them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "host/bus/memory_store.h"
#include "host/bus/spool.h"

namespace tev::host {

// The batches in memory are newer than all batches of the spool. They go to the disk when it takes
// them again, also the one that was handed out: this copy is for the next run.
class SpoolAndMemory final : public BatchStore {
 public:
  // `most_bytes` of event blocks in memory. Throws RunError, as the spool does.
  SpoolAndMemory(SpoolOptions options, CaptureHead head, std::size_t most_bytes, Dropped dropped);

  void push(Batch batch) override;
  std::optional<StoredBatch> next() override;
  void done(std::uint64_t number) override;
  void close() override;
  bool accountsFor(std::uint64_t number) const override;
  bool isEmpty() const override;
  std::uint64_t waitingBytes() const override;
  std::string leftText() const override { return spool_.leftText(); }

 private:
  // A batch of the memory that was handed out.
  struct Sent {
    StoredBatch stored;
    bool is_in_spool;
    std::optional<std::uint64_t> copy;  // its number in the spool, when it was read there
  };

  bool moveToSpool();
  bool isCopy(const StoredBatch& stored);

  Dropped dropped_;
  Spool spool_;
  MemoryStore memory_;
  std::optional<Sent> sent_;     // one at a time, so that little is lost when the process is killed
  std::optional<Batch> copied_;  // was sent from memory, and its copy was not read yet
  std::uint64_t next_number_ = 0;
};

}  // namespace tev::host
