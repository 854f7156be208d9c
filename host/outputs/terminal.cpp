#include "host/outputs/terminal.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>

#include "host/support/number_text.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

// Alternate screen, no cursor, long lines are cut.
constexpr char kEnter[] = "\x1b[?1049h\x1b[?25l\x1b[?7l\x1b[2J";
constexpr char kLeave[] = "\x1b[0m\x1b[?7h\x1b[?25h\x1b[?1049l";

std::size_t fromEnvironment(const char* name, std::size_t otherwise) {
  const char* const text = std::getenv(name);
  if (!text) return otherwise;
  const std::size_t number = parseNumber<std::size_t>(text).value_or(0);
  return number > 0 && number < 10'000 ? number : otherwise;
}

}  // namespace

TerminalSize terminalSize(const OutputFile& output) {
  winsize size{};
  if (ioctl(output.descriptor(), TIOCGWINSZ, &size) == 0 && size.ws_col > 0 && size.ws_row > 0)
    return {size.ws_col, size.ws_row};
  const TerminalSize usual;
  return {fromEnvironment("COLUMNS", usual.columns), fromEnvironment("LINES", usual.rows)};
}

bool coloursAreWanted() {
  return !std::getenv("NO_COLOR");
}

bool canRedraw(const OutputFile& output) {
  const char* const kind = std::getenv("TERM");
  return output.isTerminal() && kind && *kind && std::string_view(kind) != "dumb";
}

void LiveScreen::draw(const std::vector<std::string>& lines,
                      const std::vector<std::string>& notes) {
  if (!guard_)
    guard_.emplace(
        TerminalGuard::Screen{.output = output_.descriptor(), .enter = kEnter, .leave = kLeave});
  if (!TerminalGuard::isInForeground()) return;
  TerminalGuard::enter();
  TerminalGuard::takeRedraw();  // this frame shows everything
  const TerminalSize size = terminalSize(output_);
  std::string& out = output_.buffer();
  out += "\x1b[H";

  const std::size_t room = size.rows > notes.size() + 1 ? size.rows - notes.size() - 1 : 1;
  const std::size_t shown = lines.size() <= room ? lines.size() : room - 1;
  for (std::size_t i = 0; i < shown; ++i) out += lines[i] + "\x1b[K\n";
  if (shown < lines.size())
    out += fmt::format(
        "({} more lines: enlarge the window, or choose with --filter and --cset)\x1b[K\n",
        lines.size() - shown);
  for (const std::string& note : notes) out += padRight(note, size.columns) + "\n";
  out += "\x1b[J";
}

void LiveScreen::leave() noexcept {
  if (guard_) output_.buffer().clear();  // of a frame that was not written
  guard_.reset();
}

}  // namespace tev::host
