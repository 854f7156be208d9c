#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "host/output_file.h"

namespace tev::host {

struct TerminalSize {
  std::size_t columns = 80;
  std::size_t rows = 24;
};

// Of the terminal that the output goes to; without one, COLUMNS and LINES count, else 80 and 24.
TerminalSize terminalSize(const OutputFile& output);

// Whether the output can be redrawn in place.
bool canRedraw(const OutputFile& output);

// A screen of its own while the run lasts, so that whatever else writes to the terminal is
// overdrawn by the next frame, and what stood there before comes back at the end.
class LiveScreen {
 public:
  explicit LiveScreen(OutputFile& output) : output_(output) {}
  ~LiveScreen() { leave(); }
  LiveScreen(const LiveScreen&) = delete;
  LiveScreen& operator=(const LiveScreen&) = delete;

  // As many lines as there is room for, and `notes` at the bottom.
  void draw(const std::vector<std::string>& lines, const std::vector<std::string>& notes);
  void leave() noexcept;

 private:
  OutputFile& output_;
  bool entered_ = false;
};

}  // namespace tev::host
