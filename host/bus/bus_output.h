// Sends the blocks of a run, or its windows, over a message bus.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "host/bus/batcher.h"
#include "host/bus/bus_options.h"
#include "host/bus/memory_store.h"
#include "host/bus/publisher.h"
#include "host/bus/sender.h"
#include "host/bus/spool_and_memory.h"
#include "host/bus/undelivered.h"
#include "host/outputs/output.h"
#include "host/outputs/window_events.h"

namespace tev::host {

class BusOutput final : public Output {
 public:
  // `head` describes the run for the files of a spool. `schema` must outlive this. With `windows`,
  // which may be null, these are sent instead of the events. Throws RunError.
  BusOutput(const BusOptions& options, std::unique_ptr<Publisher> publisher,
            const CaptureHead& head, const SchemaView& schema,
            std::unique_ptr<WindowEvents> windows);

  const Projection* projection() const override {
    return windows_ ? &windows_->projection() : nullptr;
  }
  void blocks(Blocks blocks) override;
  void event(const Event& event, const Series& series) override;
  void update(const RunStatus& status) override;
  void sendRest() override;
  void leave() override { sendRest(); }  // also after a run that failed
  void addCounts(std::vector<DeviceCounts>& counts) const override { undelivered_.addTo(counts); }

  std::uint64_t undeliveredEvents() const { return undelivered_.events(); }
  SenderTotals totals() const { return sender_.totals(); }
  std::uint64_t waitingBytes() const { return sender_.waitingBytes(); }

  // A line for the summary of the run.
  std::string summary() const;

 private:
  std::string name_;  // of the bus
  std::unique_ptr<WindowEvents> windows_;
  Undelivered undelivered_;
  Sender sender_;
  Batcher batcher_;
};

}  // namespace tev::host
