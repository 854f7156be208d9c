// A file of its own, because <term.h> defines macros with common names.
#include "host/screen/terminal_kind.h"

#include <ncurses.h>
#include <term.h>
#include <unistd.h>

namespace tev::host {

bool isFullScreenTerminal() {
  int error = 0;
  return setupterm(nullptr, STDOUT_FILENO, &error) == OK && cursor_address != nullptr;
}

}  // namespace tev::host
