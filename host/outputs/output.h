// The interface of an output, which writes, shows or measures events.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/events/event_source.h"
#include "host/events/projection.h"
#include "host/events/series.h"

namespace tev::host {

// How the run stands after a fetch.
struct RunStatus {
  std::string source;  // its name
  double elapsed_seconds = 0;
  std::uint64_t lost_samples = 0;     // of all devices
  std::vector<DeviceCounts> devices;  // empty when the source does not count
  std::vector<std::string> notes;     // lines for the person at the terminal, oldest first
};

// The calls come from one thread, in this order: begin, update; after each fetch its blocks, its
// events and update; at the end of the run end and leave. Several outputs may run at once. An
// exception of an output (RunError, ClosedPipe) ends the run.
class Output {
 public:
  Output() = default;
  virtual ~Output() = default;
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  // Chooses the events that it takes. Null: it takes none, and nothing is decoded for it.
  virtual const Projection* projection() const { return nullptr; }

  // Whether it draws on the terminal, where other lines must not appear meanwhile.
  virtual bool drawsOnTerminal() const { return false; }

  // Everything has been set up. Before this, no existing file may be touched.
  virtual void begin() {}

  // Blocks as the source delivered them, before their events are decoded. Valid during the call.
  virtual void blocks(Blocks) {}

  // An event that the projection chooses. The event is valid during the call; its type and the
  // series live as long as the run.
  virtual void event(const Event&, const Series&) {}

  // Once at the beginning, and after each fetch.
  virtual void update(const RunStatus&) {}

  // After the last event of a run that did not fail.
  virtual void end(const RunStatus&) {}

  // Puts the terminal back in order and ends all threads, also after a run that failed. The
  // destructor must do the same.
  virtual void leave() {}
};

}  // namespace tev::host
