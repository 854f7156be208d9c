// What becomes of the events: one formatter per output format.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/decoder.h"
#include "host/output_file.h"
#include "host/series.h"

namespace tev::host {

// How the run stands at the end of an update.
struct RunStatus {
  std::string provider;  // its name
  double elapsed_seconds = 0;
  std::uint64_t lost_samples = 0;
  std::vector<std::string> notes;  // lines for the person at the terminal, oldest first
};

class Formatter {
 public:
  Formatter() = default;
  virtual ~Formatter() = default;
  Formatter(const Formatter&) = delete;
  Formatter& operator=(const Formatter&) = delete;

  virtual void event(const Event& event, const Series& series) = 0;

  // After each round of events.
  virtual void update(const RunStatus&) {}

  // After the last one.
  virtual void end(const RunStatus&) {}

  // Leaves the terminal as it was found; nothing is drawn after that.
  virtual void leave() {}
};

// They write into `output`'s buffer; `schema` must outlive them.
std::unique_ptr<Formatter> makeJsonlFormatter(const SchemaView& schema, OutputFile& output);
std::unique_ptr<Formatter> makeCsvFormatter(const SchemaView& schema, OutputFile& output);
std::unique_ptr<Formatter> makeTableFormatter(OutputFile& output);

}  // namespace tev::host
