#include "host/commands/decode.h"

#include <fmt/format.h>
#include <unistd.h>

#include "host/commands/recording.h"
#include "host/commands/writing.h"
#include "host/figures/figures.h"
#include "host/outputs/delivery.h"
#include "host/outputs/record_marks.h"
#include "host/support/errors.h"
#include "host/support/stderr_text.h"
#include "host/support/stop_signal.h"
#include "host/support/time_text.h"

namespace tev::host {
namespace {

[[noreturn]] void failInterrupted(const CaptureSource& source) {
  throw RunError(
      fmt::format("interrupted after {} of {} bytes", source.readBytes(), source.size()));
}

}  // namespace

int decode(const RunOptions& options, const DecodeOptions& decode) {
  const StopSignal stop_signal;
  CaptureSource source(decode.files, decode.span);
  OutputFile file(textPath(options));
  expectOtherFile(file.descriptor(), decode.files);
  expectOtherFile(file.descriptor(), inputsOf(options));
  const Projection projection(source.schema(), options.selection);
  CountingOptions counting = options.counting;
  counting.clear_on_read = source.head().clear_on_read;
  const FormatKind kind = formatFor(options, file).kind;
  counting.follow =
      options.rates || options.window || kind == FormatKind::display || kind == FormatKind::figures;
  Figures figures(projection, counting, source.head().interval_usec);
  const auto written = makeWriter(options, projection, figures, file);
  RecordMarks marks(projection, file);
  // A table is for the whole recording. Another format needs the updates.
  const bool updates = kind != FormatKind::display;
  std::vector<Output*> outputs{written.get()};
  if (updates) outputs.insert(outputs.begin(), &marks);
  // Where nothing is written, events are decoded only if they decide anything.
  if (kind == FormatKind::nothing && !options.samples && options.selection.filters.empty())
    outputs.clear();
  Delivery delivery(source.schema(), outputs, figures, options.samples,
                    silenceUsec(source.head().interval_usec, kUsualUpdate));
  file.whileStalled([](auto) { return StopSignal::requests() == 0; });
  delivery.begin();
  delivery.update(statusOf(source));
  {
    ReadingProgress progress(isatty(STDERR_FILENO) == 1 && !file.isTerminal());
    const auto interrupted = [] { return StopSignal::requests() > 0; };
    try {
      while (!interrupted() && !delivery.isComplete() &&
             source.fetch([&](Blocks blocks) { delivery.take(blocks); }, interrupted)) {
        if (updates) delivery.update(statusOf(source));
        progress.show(source);
      }
      // Of an interrupted text the beginning is useful, but a table must not look complete.
      if (interrupted() && kind == FormatKind::folder) failInterrupted(source);
      if (!updates) delivery.update(statusOf(source));
      delivery.end(statusOf(source));
    } catch (const ClosedPipe&) {
      return kExitFine;
    } catch (...) {
      delivery.leave();
      closeAfterFailure(file);
      throw;
    }
  }
  if (StopSignal::requests() > 0) failInterrupted(source);
  const std::string damage = damageText(source);
  showOnStderr(damage + unfinishedText(source));
  expectDevicesOf(delivery, projection.devices());
  if (delivery.series().empty() && (decode.span.from_usec > 0 || decode.span.to_usec < UINT64_MAX))
    showOnStderr(
        fmt::format("tev-host: no event between --from and --to; the recording begins at {}\n",
                    timeText(source.head().start.real / 1000)));
  return damage.empty() ? kExitFine : kExitFailed;
}

}  // namespace tev::host
