// The full-screen view as an output of a run.
#pragma once

#include <chrono>
#include <optional>

#include "host/outputs/interaction.h"
#include "host/outputs/output.h"
#include "host/screen/curses_terminal.h"
#include "host/screen/frame.h"
#include "host/screen/model.h"
#include "host/screen/symbols.h"
#include "host/screen/view.h"

namespace tev::host {

class ScreenOutput final : public Output, public Interaction {
 public:
  // Takes the terminal when it is constructed. Throws UsageError when there is none. `projection`
  // and `figures` must outlive this.
  ScreenOutput(const Projection& projection, const Figures& figures,
               std::chrono::milliseconds interval, std::optional<SymbolSet> symbols);

  const Projection* projection() const override { return &projection_; }
  bool drawsOnTerminal() const override { return true; }
  const Interaction* interaction() const override { return this; }
  void event(const Event& event, const Series& series) override;
  void update(const RunStatus& status) override;
  void redraw(const RunStatus& status) override;
  void leave() override { terminal_.leave(); }

  bool isPaused() const { return view_.paused; }

  int descriptor() const override;
  std::chrono::milliseconds interval() const override { return view_.interval; }

 private:
  // What the user sees: while the screen is paused, the model of that moment.
  const ScreenModel& shown() const { return paused_ ? *paused_ : collector_.model(); }
  void readKeys();
  void draw();

  const Projection& projection_;
  Symbols symbols_;
  CursesTerminal terminal_;
  ModelCollector collector_;
  View view_;
  ScreenPlace place_;
  std::optional<ScreenModel> paused_;
  std::chrono::steady_clock::time_point due_;  // the next update of the screen
};

}  // namespace tev::host
