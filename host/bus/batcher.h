// Divides the blocks of a run into batches, and numbers their events.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>

#include "host/bus/message.h"
#include "host/events/schema_view.h"

namespace tev::host {

inline constexpr std::size_t kBatchSize = std::size_t{64} << 10;  // bytes of event blocks

class Batcher {
 public:
  using Take = std::function<void(Batch)>;

  // `schema` must outlive this.
  Batcher(RunId run, const SchemaView& schema, Take take);

  // Closes a batch before it would become larger than kBatchSize. A block is not divided.
  void add(Blocks blocks);

  // Closes the current batch, if it has events.
  void close();

  std::uint64_t events() const { return next_ + batch_.events; }  // so far

 private:
  const SchemaView& schema_;
  Take take_;
  Batch batch_;  // the current one
  std::uint64_t next_ = 0;
};

}  // namespace tev::host
