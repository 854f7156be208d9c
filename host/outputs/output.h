// The interface of an output, which writes, shows or measures events.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/events/event_source.h"
#include "host/events/projection.h"
#include "host/events/series.h"
#include "host/figures/health.h"
#include "host/outputs/interaction.h"

namespace tev::host {

// The state of the run after a fetch.
struct RunStatus {
  std::string source;  // its name
  double elapsed_seconds = 0;
  std::uint64_t lost_samples = 0;        // of all devices
  std::vector<DeviceCounts> devices;     // empty when the source does not count
  std::uint64_t now_usec = 0;            // since the Unix epoch
  const HealthWatch* health = nullptr;   // of the devices that are written; not null in an output
  std::vector<std::string> notes;        // recent log lines, oldest first
  std::string hang;                      // what the source waits for; empty: nothing
  std::optional<double> silent_seconds;  // since then, the source does not answer
  std::uint64_t fetches = 0;             // so far
  double fetch_seconds = 0;              // that the source took for all calls so far
};

// The calls come from one thread, in this order: begin, update; after each fetch its blocks, its
// events and update; at the end of the run sendRest, end and leave. Several outputs may run at
// once. An exception of an output (RunError, ClosedPipe) ends the run.
class Output {
 public:
  Output() = default;
  virtual ~Output() = default;
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  // Chooses the events that the output takes; null when it does not take events.
  virtual const Projection* projection() const { return nullptr; }

  // Whether the output draws on the terminal. Other lines must not appear there during the run.
  virtual bool drawsOnTerminal() const { return false; }

  // The user's control of the run while the output shows it; null when there is none.
  virtual const Interaction* interaction() const { return nullptr; }

  // Called when the set-up is complete. An existing file must not be changed before this call.
  virtual void begin() {}

  // Blocks as the source delivered them, before their events are decoded. Valid during the call.
  virtual void blocks(Blocks) {}

  // An event that the projection chooses. The event is valid during the call; its type and the
  // series live as long as the run.
  virtual void event(const Event&, const Series&) {}

  // Adds what the output itself has lost to the counts of the devices.
  virtual void addCounts(std::vector<DeviceCounts>&) const {}

  // Called once at the beginning, and after each fetch.
  virtual void update(const RunStatus&) {}

  // Called between two updates when what the terminal shows is out of date: its size or the notes
  // have changed, or the user has pressed a key.
  virtual void redraw(const RunStatus&) {}

  // Called after the last event, before the losses of the run are counted. Waits, within a limit,
  // until what the output sends to others has arrived.
  virtual void sendRest() {}

  // Called after the last event, unless the run failed.
  virtual void end(const RunStatus&) {}

  // Restores the terminal and ends the output's threads, also after a run that failed. The
  // destructor must do the same.
  virtual void leave() {}
};

}  // namespace tev::host
