#pragma once

#include "host/outputs/formats.h"

namespace tev::host {

// An output that appends its text to a file's buffer. The buffer is written at each update and
// whenever it has become large.
class TextOutput : public Output {
 public:
  const Projection* projection() const override { return &projection_; }
  void begin() override { file_.begin(); }
  void update(const RunStatus&) override { file_.flush(); }
  void end(const RunStatus&) override { file_.close(); }

 protected:
  explicit TextOutput(const OutputSetup& setup)
      : projection_(setup.projection), file_(setup.file) {}

  const Projection& projection_;
  OutputFile& file_;
};

}  // namespace tev::host
