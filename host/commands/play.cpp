#include "host/commands/play.h"

#include <chrono>
#include <optional>
#include <string>

#include "host/capture/playback_source.h"
#include "host/commands/log_hold.h"
#include "host/commands/sampling.h"
#include "host/commands/writing.h"
#include "host/figures/figures.h"
#include "host/outputs/delivery.h"
#include "host/screen/screen_output.h"
#include "host/support/errors.h"
#include "host/support/stderr_text.h"
#include "host/support/stop_signal.h"

namespace tev::host {
namespace {

std::int64_t steadyUsec() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::microseconds>(now).count();
}

}  // namespace

int play(const RunOptions& options, const DecodeOptions& decode) {
  expectTerminal();
  const StopSignal stop_signal;
  CaptureSource recording(decode.files, decode.span);
  const CaptureHead& head = recording.head();
  const Projection projection(recording.schema(), options.selection);
  CountingOptions counting = options.counting;
  counting.clear_on_read = head.clear_on_read;
  Figures figures(projection, counting, head.interval_usec);

  LogHold log_hold;  // declared first, so that it is released after the screen
  ScreenOutput screen(projection, figures, options.update, options.symbols);
  log_hold.holdFor(screen);
  PlaybackSource source(recording, {.speed = decode.speed,
                                    .is_paused = [&screen] { return screen.isPaused(); },
                                    .steady_usec = steadyUsec});
  Delivery delivery(recording.schema(), {&screen}, figures, std::nullopt,
                    silenceUsec(head.interval_usec, options.update));
  delivery.begin();
  Sampling sampling(options, source, delivery, figures, &screen);
  try {
    sampling.run();
  } catch (...) {
    delivery.leave();
    throw;
  }
  delivery.leave();
  log_hold.release();
  const std::string damage = damageText(recording);
  showOnStderr(damage);
  expectDevicesOf(delivery, projection.devices());
  return damage.empty() ? kExitFine : kExitFailed;
}

}  // namespace tev::host
