#pragma once

#include "host/outputs/output.h"
#include "host/outputs/output_file.h"

namespace tev::host {

// Tells the file which event each part of its text belongs to. Stands directly before the output
// that writes the events, and has the same projection.
class RecordMarks final : public Output {
 public:
  RecordMarks(const Projection& projection, OutputFile& file)
      : projection_(projection), file_(file) {}

  const Projection* projection() const override { return &projection_; }
  void event(const Event&, const Series& series) override { file_.beginRecord(series.number); }
  void update(const RunStatus&) override { file_.endRecord(); }
  void end(const RunStatus&) override { file_.endRecord(); }

 private:
  const Projection& projection_;
  OutputFile& file_;
};

}  // namespace tev::host
