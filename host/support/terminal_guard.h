// Gives the terminal back on every way out of the process.
#pragma once

namespace tev::host {

// While an instance exists, the terminal is put back as it was: by leave() and the destructor,
// before a signal ends the process (a fault, abort, SIGQUIT, the third request to stop, and other
// signals that end a process by default), at exit(), and while the process is stopped (SIGTSTP).
// The exit status and the core dump remain those of the signal. SIGKILL and _exit() cannot be
// handled.
//
// At most one instance may exist. A full-screen library is initialized after the construction and
// ended before leave(): it then leaves the handlers in place.
class TerminalGuard {
 public:
  struct Screen {
    int output;         // the terminal's descriptor
    const char* enter;  // written by enter() and when a stopped process continues
    const char* leave;  // written on every way out
    // The descriptor whose modes (termios) are put back too; -1: the modes are not changed.
    int input = -1;
  };

  // The texts must live as long as the process. The modes are those of this moment.
  explicit TerminalGuard(const Screen& screen);
  ~TerminalGuard();
  TerminalGuard(const TerminalGuard&) = delete;
  TerminalGuard& operator=(const TerminalGuard&) = delete;

  // Shows the screen, unless it is shown or the process is in the background of a shell.
  static void enter();
  static void leave() noexcept;  // async-signal-safe

  // Whether the process may draw. False in the background of a shell.
  static bool isInForeground();

  // Whether the terminal was resized, or the process was continued, since the last takeRedraw().
  // The whole screen must then be drawn again. The signal has also ended a wait of StopSignal.
  static bool isRedrawDue();
  static bool takeRedraw();
};

}  // namespace tev::host
