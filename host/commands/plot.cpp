#include "host/commands/plot.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <unistd.h>

#include <ctime>
#include <filesystem>
#include <optional>

#include "host/commands/recording.h"
#include "host/commands/writing.h"
#include "host/figures/fast_counters.h"
#include "host/figures/figures.h"
#include "host/outputs/delivery.h"
#include "host/plot/page_files.h"
#include "host/plot/plot_output.h"
#include "host/support/errors.h"
#include "host/support/stderr_text.h"
#include "host/support/stop_signal.h"
#include "host/support/whole_file.h"

namespace tev::host {
namespace {

bool isInterrupted() {
  return StopSignal::requests() > 0;
}

PageHead headOf(const CaptureSource& source, const std::string& title) {
  PageHead head{title, source.name(), source.head().host, source.head().writer, {}, {}};
  for (const CaptureFileState& file : source.files()) {
    head.files.push_back(std::filesystem::path(file.path).filename().string());
    for (const Damage& damage : file.damages) head.notes.push_back(describe(file, damage));
  }
  head.notes.insert(head.notes.begin(), source.problems().begin(), source.problems().end());
  for (const ClockStep& step : source.clockSteps())
    head.notes.push_back(
        fmt::format("the clock was stepped by {:+.3f} s until {:%Y-%m-%dT%H:%M:%SZ}",
                    static_cast<double>(step.by_usec) / 1e6,
                    fmt::gmtime(static_cast<std::time_t>(step.at_usec / 1'000'000))));
  for (const std::string& file : head.files)
    if (title.empty()) head.title += (head.title.empty() ? "" : ", ") + file;
  return head;
}

}  // namespace

int plot(const RunOptions& options, const DecodeOptions& decode, const PlotOptions& plot) {
  const PageFiles* const files = pageFiles();
  if (!files)
    throw UsageError("this build has no plot, because the plotting library was not there");
  const StopSignal stop_signal;
  CaptureSource source(decode.files, decode.span);
  WholeFile file(options.output);
  // Either the name leads to the file, or the page goes elsewhere when it is complete.
  for (const auto& inputs : {decode.files, inputsOf(options)}) {
    expectOtherFile(file.path(), inputs);
    expectOtherFile(file.descriptor(), inputs);
  }
  const Projection projection(source.schema(), options.selection);
  CountingOptions counting = options.counting;
  counting.clear_on_read = source.head().clear_on_read;
  Figures figures(projection, counting, source.head().interval_usec);
  PlotOutput page(projection, figures, plot.most_bytes);
  Delivery delivery(source.schema(), {&page}, figures, std::nullopt,
                    silenceUsec(source.head().interval_usec, kUsualUpdate));
  delivery.begin();
  delivery.update(statusOf(source));
  {
    ReadingProgress progress(isatty(STDERR_FILENO) == 1);
    while (!isInterrupted() &&
           source.fetch([&](Blocks blocks) { delivery.take(blocks); }, isInterrupted)) {
      delivery.update(statusOf(source));
      progress.show(source);
    }
  }
  if (isInterrupted())
    throw RunError(fmt::format("interrupted after {} of {} bytes; no page was written",
                               source.readBytes(), source.size()));
  delivery.end(statusOf(source));
  expectDevicesOf(delivery, projection.devices());
  if (delivery.series().empty()) throw RunError("there is no event to plot");
  PageHead head = headOf(source, plot.title);
  for (const FastCounter& counter : fastCounters(figures)) head.notes.push_back(describe(counter));
  page.write(*files, head, file, isInterrupted);
  file.finish();
  const std::string damage = damageText(source);
  showOnStderr(damage + unfinishedText(source));
  return damage.empty() ? kExitFine : kExitFailed;
}

}  // namespace tev::host
