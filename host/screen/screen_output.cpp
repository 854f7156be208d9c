#include "host/screen/screen_output.h"

#include <unistd.h>

#include <algorithm>
#include <utility>

#include "host/support/stop_signal.h"

namespace tev::host {
namespace {

constexpr std::chrono::milliseconds kShortestInterval{100};

SymbolSet chosenSet(std::optional<SymbolSet> wanted) {
  const bool utf8 = showsUtf8();
  return wanted ? *wanted : utf8 ? SymbolSet::braille : SymbolSet::plain;
}

}  // namespace

ScreenOutput::ScreenOutput(const Projection& projection, const Figures& figures,
                           std::chrono::milliseconds interval, std::optional<SymbolSet> symbols)
    : projection_(projection), symbols_(chosenSet(symbols)), collector_(figures) {
  view_.interval = std::max(interval, kShortestInterval);
}

void ScreenOutput::event(const Event& event, const Series& series) {
  collector_.sample(event, series);
}

void ScreenOutput::update(const RunStatus& status) {
  const auto now = std::chrono::steady_clock::now();
  if (now < due_) return;
  due_ = now + view_.interval - view_.interval / 8;  // fetches are not exactly on time
  collector_.update(status);
  readKeys();
  draw();
}

void ScreenOutput::redraw(const RunStatus& status) {
  collector_.refresh(status);
  readKeys();
  draw();
}

int ScreenOutput::descriptor() const {
  return terminal_.isUsable() ? STDIN_FILENO : -1;
}

void ScreenOutput::readKeys() {
  if (!terminal_.isUsable()) return;
  const auto interval = view_.interval;
  for (KeyPress key = terminal_.key(); key.key != Key::none; key = terminal_.key()) {
    press(view_, key, shown(), place_);
    if (view_.paused && !paused_) paused_ = collector_.model();
    if (!view_.paused) paused_.reset();
  }
  if (view_.interval != interval) due_ = {};
  if (std::exchange(view_.ended, false)) StopSignal::request();
}

void ScreenOutput::draw() {
  if (!terminal_.isUsable()) return;
  TerminalGuard::enter();
  if (paused_) paused_->hang = collector_.model().hang;
  Frame frame = drawFrame(shown(), view_, symbols_, terminal_.size());
  place_ = frame.place;
  terminal_.draw(frame.lines);
}

}  // namespace tev::host
