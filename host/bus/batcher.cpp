#include "host/bus/batcher.h"

#include <algorithm>
#include <utility>

#include "host/events/decoder.h"

namespace tev::host {
namespace {

std::shared_ptr<const RunSchemas> schemasOf(const SchemaView& schema) {
  auto schemas = std::make_shared<RunSchemas>();
  for (const SchemaView::Schema& one : schema.schemas()) {
    schemas->ids.push_back(one.id);
    schemas->texts.push_back(one.text);
  }
  return schemas;
}

}  // namespace

Batcher::Batcher(RunId run, const SchemaView& schema, Take take)
    : schema_(schema), take_(std::move(take)) {
  batch_.run = std::move(run);
  batch_.schemas = schemasOf(schema);
}

void Batcher::add(Blocks blocks) {
  forEachBlock(schema_, blocks, [this](const Block& block) {
    if (batch_.blocks.size() + block.bytes.size() > kBatchSize) close();
    if (batch_.events == 0) {
      batch_.first_usec = UINT64_MAX;
      batch_.last_usec = 0;
    }
    batch_.first_usec = std::min(batch_.first_usec, block.timestamp_usec);
    batch_.last_usec = std::max(batch_.last_usec, block.timestamp_usec);
    batch_.events += block.events;
    batch_.blocks.insert(batch_.blocks.end(), block.bytes.begin(), block.bytes.end());
  });
}

void Batcher::close() {
  if (batch_.events == 0) {
    batch_.blocks.clear();
    return;
  }
  batch_.first = next_;
  next_ += batch_.events;
  take_(batch_);
  batch_.events = 0;
  batch_.blocks.clear();
}

}  // namespace tev::host
