// The interface of what keeps batches until the bus has acknowledged them.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "host/bus/message.h"

namespace tev::host {

// A batch on its way, and the store's number for it.
struct StoredBatch {
  std::uint64_t number = 0;
  Batch batch;
};

// Calls may come from several threads, one at a time.
class BatchStore {
 public:
  // Is told of each batch that is given up.
  using Dropped = std::function<void(const Batch&)>;

  BatchStore() = default;
  virtual ~BatchStore() = default;
  BatchStore(const BatchStore&) = delete;
  BatchStore& operator=(const BatchStore&) = delete;

  // Takes a batch behind all others. When the room is used up, gives up old batches
  // and does not throw.
  virtual void push(Batch batch) = 0;

  // The oldest batch that was not handed out yet; nothing when there is none. Remains in the store.
  virtual std::optional<StoredBatch> next() = 0;

  // The batch with this number, which was handed out, is not needed any more.
  virtual void done(std::uint64_t number) = 0;

  // No batches will be added. Gives up the batches that would not survive the end of the process.
  virtual void close() = 0;

  // Whether a batch that was handed out is kept for the next run, or was counted as given up. To be
  // asked after close().
  virtual bool accountsFor(std::uint64_t number) const = 0;

  // Whether every batch is done.
  virtual bool isEmpty() const = 0;

  // Bytes of the batches that wait: in memory or on the disk.
  virtual std::uint64_t waitingBytes() const = 0;

  // What became of the batches that are left, for the summary; empty: none is left.
  virtual std::string leftText() const = 0;
};

}  // namespace tev::host
