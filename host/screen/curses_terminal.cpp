#include "host/screen/curses_terminal.h"

#include <fmt/format.h>
#include <langinfo.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>

#define NCURSES_NOMACROS 1
#include <ncurses.h>

#include "host/outputs/terminal.h"
#include "host/screen/terminal_kind.h"
#include "host/support/errors.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

// Alternate screen, no cursor. Leaving also ends the reports of the mouse.
constexpr char kEnter[] = "\x1b[?1049h\x1b[?25l";
constexpr char kLeave[] = "\x1b[?1006l\x1b[?1000l\x1b[0m\x1b[?7h\x1b[?25h\x1b[?1049l";
constexpr int kEscapeMilliseconds = 25;  // between Esc and the rest of a longer key

// How a role looks. A palette that colour-blind people can read; the numbers are those of terminals
// with 256 and with 8 colours. Attributes tell the roles apart without colours.
struct Look {
  Role role;
  short colour;
  short basic_colour;
  attr_t attributes;
};
constexpr short kOwnColour = -1;  // of the terminal
constexpr Look kLooks[] = {
    {Role::normal, kOwnColour, kOwnColour, A_NORMAL},
    {Role::heading, kOwnColour, kOwnColour, A_UNDERLINE},
    {Role::emphasis, kOwnColour, kOwnColour, A_BOLD},
    {Role::quiet, kOwnColour, kOwnColour, A_DIM},
    {Role::good, 36, COLOR_GREEN, A_NORMAL},          // bluish green
    {Role::warning, 214, COLOR_YELLOW, A_NORMAL},     // orange
    {Role::bad, 202, COLOR_RED, A_BOLD},              // vermilion
    {Role::uncertain, 175, COLOR_MAGENTA, A_NORMAL},  // reddish purple
    {Role::trace, 74, COLOR_CYAN, A_NORMAL},          // sky blue
    {Role::key, kOwnColour, kOwnColour, A_BOLD},
};

short pairOf(Role role) {
  return static_cast<short>(static_cast<short>(role) + 1);
}

// False when there are none.
bool setUpColours() {
  if (!coloursAreWanted() || !has_colors()) return false;
  start_color();
  use_default_colors();
  for (const Look& look : kLooks)
    init_pair(pairOf(look.role), COLORS >= 256 ? look.colour : look.basic_colour, kOwnColour);
  return true;
}

// With "?" in place of other characters.
std::string asAscii(const std::string& text) {
  std::string ascii;
  for (const char byte : text) {
    const auto value = static_cast<unsigned char>(byte);
    if (value < 0x80)
      ascii += byte;
    else if (value >= 0xC0)  // the first byte of a character
      ascii += '?';
  }
  return ascii;
}

attr_t attributesOf(Role role, bool has_colours) {
  const Look& look = kLooks[static_cast<std::size_t>(role)];
  if (!has_colours) return look.attributes;
  return look.attributes | static_cast<attr_t>(COLOR_PAIR(pairOf(role)));
}

KeyPress clickOf(const MEVENT& event) {
  KeyPress press;
  if ((event.bstate & BUTTON4_PRESSED) != 0)
    press.key = Key::up;
  else if ((event.bstate & BUTTON5_PRESSED) != 0)
    press.key = Key::down;
  else
    press = {.key = Key::click, .row = static_cast<std::size_t>(event.y)};
  press.is_doubled = (event.bstate & BUTTON1_DOUBLE_CLICKED) != 0;
  return press;
}

KeyPress keyOf(int code) {
  switch (code) {
    case KEY_UP:
      return {.key = Key::up};
    case KEY_DOWN:
      return {.key = Key::down};
    case KEY_LEFT:
      return {.key = Key::left};
    case KEY_RIGHT:
      return {.key = Key::right};
    case KEY_PPAGE:
      return {.key = Key::page_up};
    case KEY_NPAGE:
      return {.key = Key::page_down};
    case KEY_HOME:
      return {.key = Key::home};
    case KEY_END:
      return {.key = Key::end};
    case KEY_ENTER:
    case '\r':
    case '\n':
      return {.key = Key::enter};
    case '\x1b':
      return {.key = Key::escape};
    case KEY_BACKSPACE:
    case '\b':
    case '\x7f':
      return {.key = Key::backspace};
    case '\t':
      return {.key = Key::tab};
    default:
      break;
  }
  if (code >= ' ' && code <= '~')
    return {.key = Key::character, .character = static_cast<char>(code)};
  return {};
}

// Tells the terminal to report special keys and the mouse.
void enableKeys() {
  keypad(stdscr, FALSE);
  keypad(stdscr, TRUE);
  mousemask(0, nullptr);
  mousemask(BUTTON1_CLICKED | BUTTON1_DOUBLE_CLICKED | BUTTON4_PRESSED | BUTTON5_PRESSED, nullptr);
}

}  // namespace

void expectTerminal() {
  for (const auto& [descriptor, name] :
       {std::pair(STDIN_FILENO, "input"), std::pair(STDOUT_FILENO, "output")})
    if (isatty(descriptor) != 1)
      throw UsageError(fmt::format(
          "top needs a terminal, and standard {} is not one: use tev-host run for files and pipes",
          name));
  if (isFullScreenTerminal()) return;
  const char* const kind = std::getenv("TERM");
  throw UsageError(fmt::format("top cannot use this terminal: TERM is {}",
                               kind && *kind ? "'" + asPrintable(kind) + "'" : "not set"));
}

bool showsUtf8() {
  std::setlocale(LC_CTYPE, "");
  return std::string_view(nl_langinfo(CODESET)) == "UTF-8";
}

CursesTerminal::CursesTerminal()
    : guard_({.output = STDOUT_FILENO, .enter = kEnter, .leave = kLeave, .input = STDIN_FILENO}) {
  TerminalGuard::enter();
  SCREEN* const screen = newterm(nullptr, stdout, stdin);
  if (!screen) {
    TerminalGuard::leave();
    throw RunError("the terminal could not be set up");
  }
  screen_ = screen;
  cbreak();
  noecho();
  nonl();
  enableKeys();
  nodelay(stdscr, TRUE);
  leaveok(stdscr, TRUE);
  curs_set(0);
  set_escdelay(kEscapeMilliseconds);
  has_colours_ = setUpColours();
  has_utf8_ = showsUtf8();
}

CursesTerminal::~CursesTerminal() {
  leave();
}

ScreenSize CursesTerminal::size() {
  winsize window{};
  const bool is_known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &window) == 0 && window.ws_col > 0;
  if (is_known && (window.ws_row != LINES || window.ws_col != COLS))
    resizeterm(window.ws_row, window.ws_col);
  return {static_cast<std::size_t>(COLS), static_cast<std::size_t>(LINES)};
}

// A terminal that takes nothing, for example after Ctrl-S, would block the write.
bool CursesTerminal::takesText() {
  pollfd output{STDOUT_FILENO, POLLOUT, 0};
  return poll(&output, 1, 0) == 1 && (output.revents & POLLOUT) != 0;
}

void CursesTerminal::draw(const Lines& lines) {
  if (!takesText()) return;
  if (TerminalGuard::takeRedraw()) restore();
  werase(stdscr);
  for (std::size_t row = 0; row < lines.size(); ++row) {
    const attr_t selected = lines[row].is_selected ? A_REVERSE : A_NORMAL;
    wmove(stdscr, static_cast<int>(row), 0);
    for (const Piece& piece : lines[row].pieces) {
      wattrset(stdscr, static_cast<int>(attributesOf(piece.role, has_colours_) | selected));
      const std::string text = has_utf8_ ? piece.text : asAscii(piece.text);
      waddnstr(stdscr, text.data(), static_cast<int>(text.size()));
    }
    if (selected != A_NORMAL) {
      wattrset(stdscr, static_cast<int>(selected));
      for (std::size_t column = lines[row].width(); column < static_cast<std::size_t>(COLS);
           ++column)
        waddch(stdscr, ' ');
    }
  }
  wrefresh(stdscr);
}

// After a stop, the terminal has lost its modes and what it showed.
void CursesTerminal::restore() {
  reset_prog_mode();
  enableKeys();
  clearok(stdscr, TRUE);
}

KeyPress CursesTerminal::key() {
  while (true) {
    const int code = wgetch(stdscr);
    if (code == ERR) return {};
    MEVENT event{};
    const KeyPress press =
        code == KEY_MOUSE ? (getmouse(&event) == OK ? clickOf(event) : KeyPress()) : keyOf(code);
    if (press.key != Key::none) return press;
  }
}

void CursesTerminal::leave() noexcept {
  if (SCREEN* const screen = static_cast<SCREEN*>(std::exchange(screen_, nullptr))) {
    flushinp();
    if (TerminalGuard::isInForeground() && takesText()) endwin();
    TerminalGuard::leave();
    delscreen(screen);
  }
}

}  // namespace tev::host
