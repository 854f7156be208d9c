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
                     const CaptureHead& head, const SchemaView& schema,
                     std::unique_ptr<WindowEvents> windows)
    : name_(publisher->name()),
      windows_(std::move(windows)),
      sender_(std::move(publisher),
              makeStore(options, head, [this](const Batch& batch) { undelivered_.add(batch); }),
              [this](const Batch& batch) { undelivered_.add(batch); }),
      batcher_({options.source, randomNumber()}, windows_ ? windows_->schema() : schema,
               [this](Batch batch) { sender_.push(std::move(batch)); }) {}

void BusOutput::blocks(Blocks blocks) {
  if (!windows_) batcher_.add(blocks);
}

void BusOutput::event(const Event& event, const Series& series) {
  windows_->sample(event, series);
}

void BusOutput::update(const RunStatus& status) {
  if (windows_) batcher_.add(windows_->update(status.now_usec));
  batcher_.close();
}

void BusOutput::sendRest() {
  if (windows_) batcher_.add(windows_->end());
  batcher_.close();
  LastWait wait(name_);
  sender_.finish(LastWait::kLongest, [&wait] { return wait.isCutShort(); });
}

std::string BusOutput::summary() const {
  const SenderTotals totals = sender_.totals();
  const char* const unit = windows_ ? "window" : "event";
  std::string text = fmt::format("  sent {} in {} ({}B) to {}", counted(totals.events, unit),
                                 counted(totals.messages, "message"),
                                 shortNumber(static_cast<double>(totals.bytes)), name_);
  if (const std::uint64_t events = undelivered_.events(); events > 0)
    text += fmt::format("; {} undelivered", counted(events, unit));
  if (const std::string left = sender_.leftText(); !left.empty()) text += "; " + left;
  return text + "\n";
}

}  // namespace tev::host
