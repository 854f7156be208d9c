// A file of its own, because <term.h> defines macros with common names.
#include "host/screen/terminal_kind.h"

#include <ncurses.h>
#include <term.h>
#include <unistd.h>

namespace tev::host {

bool isFullScreenTerminal() {
  int error = 0;
  if (setupterm(nullptr, STDOUT_FILENO, &error) != OK) return false;
  const bool can_place_cursor = cursor_address != nullptr;
  del_curterm(cur_term);
  return can_place_cursor;
}

}  // namespace tev::host
