// The interface of the consuming end of a message bus. The workers of a group share the partitions
// of a topic.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host/bus/message.h"

namespace tev::host {

struct PartitionMessage {
  std::int32_t partition = 0;
  std::int64_t offset = 0;
  IncomingMessage message;  // valid during the call
};

// What a worker is told. All calls come from Subscription::poll(), on its thread.
class PartitionOwner {
 public:
  PartitionOwner() = default;
  virtual ~PartitionOwner() = default;
  PartitionOwner(const PartitionOwner&) = delete;
  PartitionOwner& operator=(const PartitionOwner&) = delete;

  // The worker has got the partition. Returns the offset at which to begin; nothing: where the
  // group committed last, or else at the beginning.
  virtual std::optional<std::int64_t> assigned(std::int32_t partition) = 0;

  virtual void take(const PartitionMessage& message) = 0;

  // Another worker may own the partition already, so nothing of it may be committed any more.
  virtual void revoked(std::int32_t partition) = 0;
};

struct PartitionLag {
  std::int32_t partition = 0;
  std::int64_t position = 0;  // offset of the next message
  std::int64_t end = 0;       // offset behind the last message on the bus; -1: not known
};

class Subscription {
 public:
  Subscription() = default;
  virtual ~Subscription() = default;
  Subscription(const Subscription&) = delete;
  Subscription& operator=(const Subscription&) = delete;

  // Passes the messages that are there, at most `most`, to the owner; waits for the first one up to
  // `patience`. Throws RunError when the bus has failed for good; exceptions of the owner pass.
  virtual void poll(PartitionOwner& owner, std::size_t most,
                    std::chrono::milliseconds patience) = 0;

  // Everything before `next` is done. Waits for the answer of the bus; false, with the reason in
  // `problem`, when the group did not accept this.
  virtual bool commit(std::int32_t partition, std::int64_t next, std::string& problem) = 0;

  // Of the assigned partitions.
  virtual std::vector<PartitionLag> lags() = 0;

  // Leaves the group.
  virtual void close() = 0;
};

// The texts of schemas by their ids, as published beside the events.
class SchemaShelf {
 public:
  SchemaShelf() = default;
  virtual ~SchemaShelf() = default;
  SchemaShelf(const SchemaShelf&) = delete;
  SchemaShelf& operator=(const SchemaShelf&) = delete;

  // Waits up to `patience` for a text that is not known yet. Nothing when it is not published. The
  // text is not checked.
  virtual std::optional<std::string> find(const std::string& id,
                                          std::chrono::milliseconds patience) = 0;
};

}  // namespace tev::host
