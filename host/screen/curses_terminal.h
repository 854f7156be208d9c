// The terminal, through ncurses. No other file of the project uses ncurses.
#pragma once

#include <memory>

#include "host/screen/keys.h"
#include "host/screen/pages.h"
#include "host/screen/styled_text.h"
#include "host/support/terminal_guard.h"

namespace tev::host {

// Throws UsageError when standard input or output is not a terminal, or not one for full screens.
void expectTerminal();

// Owns the terminal of standard input and output. Every way out of the process gives it back. All
// calls come from one thread. At most one instance may exist.
class CursesTerminal {
 public:
  // expectTerminal() must have passed. Throws RunError.
  CursesTerminal();
  ~CursesTerminal();
  CursesTerminal(const CursesTerminal&) = delete;
  CursesTerminal& operator=(const CursesTerminal&) = delete;

  // False in the background of a shell: nothing must be read or drawn then.
  bool isUsable() const { return TerminalGuard::isInForeground(); }

  // Takes over a change of the window.
  ScreenSize size();

  void draw(const Lines& lines);

  // The next key that was pressed; Key::none when there is none.
  KeyPress key();

  // Gives the terminal back. Nothing may be drawn afterwards.
  void leave() noexcept;

 private:
  void restore();
  static bool takesText();

  TerminalGuard guard_;
  void* screen_ = nullptr;  // of the library
  bool has_colours_ = false;
  bool has_utf8_ = false;
};

// Whether the terminal shows UTF-8. Sets the locale of characters to that of the environment.
bool showsUtf8();

}  // namespace tev::host
