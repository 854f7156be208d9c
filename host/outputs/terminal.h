#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "host/outputs/output_file.h"
#include "host/support/terminal_guard.h"

namespace tev::host {

struct TerminalSize {
  std::size_t columns = 80;
  std::size_t rows = 24;
};

// The size of the terminal that the output goes to. Without a terminal, the environment variables
// COLUMNS and LINES are used; without these, 80 and 24.
TerminalSize terminalSize(const OutputFile& output);

// Whether the user wants colours and other attributes: the environment variable NO_COLOR is not
// set.
bool coloursAreWanted();

// Whether the output goes to a terminal that can be redrawn.
bool canRedraw(const OutputFile& output);

// The terminal's alternate screen. Every frame overwrites the text of other programs. leave()
// restores the previous contents.
class LiveScreen {
 public:
  explicit LiveScreen(OutputFile& output) : output_(output) { output_.keepEscapes(); }
  ~LiveScreen() { leave(); }
  LiveScreen(const LiveScreen&) = delete;
  LiveScreen& operator=(const LiveScreen&) = delete;

  // Draws as many lines as there is room for, and `notes` at the bottom. Draws nothing in the
  // background of a shell.
  void draw(const std::vector<std::string>& lines, const std::vector<std::string>& notes);
  void leave() noexcept;

 private:
  OutputFile& output_;
  std::optional<TerminalGuard> guard_;  // while the screen is shown
};

}  // namespace tev::host
