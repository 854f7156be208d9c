#pragma once

#include <unistd.h>

#include <utility>

#include "host/outputs/output.h"
#include "host/support/log.h"

namespace tev::host {

// Keeps log lines off the terminal while an output draws on it.
class LogHold {
 public:
  LogHold() = default;
  ~LogHold() { release(); }
  LogHold(const LogHold&) = delete;
  LogHold& operator=(const LogHold&) = delete;

  void holdFor(const Output& output) {
    if (!output.drawsOnTerminal() || isatty(STDERR_FILENO) != 1) return;
    Log::instance().holdBack();
    held_ = true;
  }
  void release() {
    if (std::exchange(held_, false)) Log::instance().release();
  }

 private:
  bool held_ = false;
};

}  // namespace tev::host
