#include "host/bus/bus_output.h"

#include <fmt/format.h>

#include <utility>

#include "host/support/errors.h"
#include "host/support/last_wait.h"
#include "host/support/random.h"
#include "host/support/short_number.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

std::unique_ptr<BatchStore> makeStore(const BusOptions& options, const CaptureHead& head,
                                      BatchStore::Dropped dropped) {
  if (options.spool)
    return std::make_unique<SpoolAndMemory>(*options.spool, head, options.queue_bytes,
                                            std::move(dropped));
  return std::make_unique<MemoryStore>(options.queue_bytes, std::move(dropped));
}

}  // namespace

BusOutput::BusOutput(const BusOptions& options, std::unique_ptr<Publisher> publisher,
                     const CaptureHead& head, const SchemaView& schema)
    : name_(publisher->name()),
      sender_(std::move(publisher),
              makeStore(options, head, [this](const Batch& batch) { undelivered_.add(batch); }),
              [this](const Batch& batch) { undelivered_.add(batch); }),
      batcher_({options.source, randomNumber()}, schema,
               [this](Batch batch) { sender_.push(std::move(batch)); }) {}

void BusOutput::blocks(Blocks blocks) {
  batcher_.add(blocks);
}

void BusOutput::update(const RunStatus&) {
  batcher_.close();
}

void BusOutput::end(const RunStatus&) {
  leave();
}

// Also after a run that failed: what has arrived is sent.
void BusOutput::leave() {
  batcher_.close();
  LastWait wait(name_);
  sender_.finish(LastWait::kLongest, [&wait] { return wait.isCutShort(); });
}

std::string BusOutput::summary() const {
  const SenderTotals totals = sender_.totals();
  std::string text = fmt::format("  sent {} in {} ({}B) to {}", counted(totals.events, "event"),
                                 counted(totals.messages, "message"),
                                 shortNumber(static_cast<double>(totals.bytes)), name_);
  if (const std::uint64_t events = undelivered_.events(); events > 0)
    text += fmt::format("; {} undelivered", counted(events, "event"));
  if (const std::string left = sender_.leftText(); !left.empty()) text += "; " + left;
  return text + "\n";
}

}  // namespace tev::host
