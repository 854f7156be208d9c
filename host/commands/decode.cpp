#include "host/commands/decode.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

#include "host/commands/writing.h"
#include "host/figures/figures.h"
#include "host/outputs/delivery.h"
#include "host/outputs/record_marks.h"
#include "host/support/errors.h"
#include "host/support/stderr_text.h"
#include "host/support/stop_signal.h"

namespace tev::host {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint64_t kIntervals = 5;  // without a sample, after which a device is silent

// A line on the terminal that is written again and again.
class Progress {
 public:
  explicit Progress(const OutputFile& output)
      : is_shown_(isatty(STDERR_FILENO) == 1 && !output.isTerminal()) {}
  ~Progress() {
    if (is_drawn_) showOnStderr("\r\x1b[K");
  }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void show(const CaptureSource& source) {
    constexpr std::chrono::milliseconds kEvery{200};
    const auto now = Clock::now();
    if (!is_shown_ || now - drawn_ < kEvery) return;
    drawn_ = now;
    is_drawn_ = true;
    showOnStderr(fmt::format("\r{:3.0f} %", 100 * static_cast<double>(source.readBytes()) /
                                                static_cast<double>(source.size())));
  }

 private:
  bool is_shown_;
  bool is_drawn_ = false;
  Clock::time_point drawn_;
};

RunStatus statusOf(const CaptureSource& source) {
  RunStatus status;
  status.source = source.name();
  status.now_usec = std::max(source.nowUsec(), source.head().start.real / 1000);
  status.elapsed_seconds = static_cast<double>(status.now_usec) / 1e6 -
                           static_cast<double>(source.head().start.real) / 1e9;
  status.devices = source.counts().value_or(std::vector<DeviceCounts>{});
  for (const DeviceCounts& one : status.devices) status.lost_samples += one.lost;
  return status;
}

// Lines about the damaged places; empty when there are none.
std::string damageText(const CaptureSource& source) {
  std::string text;
  for (const CaptureFileState& file : source.files())
    for (const Damage& damage : file.damages) text += "tev-host: " + describe(file, damage) + "\n";
  return text;
}

}  // namespace

int decode(const RunOptions& options, const DecodeOptions& decode) {
  const StopSignal stop_signal;
  CaptureSource source(decode.files, decode.span);
  OutputFile file(options.output);
  const Projection projection(source.schema(), options.selection);
  CountingOptions counting = options.counting;
  counting.clear_on_read = source.head().clear_on_read;
  Figures figures(projection, counting, source.head().interval_usec);
  const auto written = makeWriter(options, projection, figures, file);
  RecordMarks marks(projection, file);
  // A table is for the whole recording. Another format needs the updates.
  const bool updates = formatFor(options, file).is_machine_readable;
  Delivery delivery(source.schema(), {&marks, written.get()}, figures, options.samples,
                    kIntervals * (source.head().interval_usec + 1'000'000));
  file.whileStalled([](auto) { return StopSignal::requests() == 0; });
  delivery.begin();
  delivery.update(statusOf(source));
  {
    Progress progress(file);
    const auto interrupted = [] { return StopSignal::requests() > 0; };
    try {
      while (!interrupted() && !delivery.isComplete() &&
             source.fetch([&](Blocks blocks) { delivery.take(blocks); }, interrupted)) {
        if (updates) delivery.update(statusOf(source));
        progress.show(source);
      }
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
  const std::string damage = damageText(source);
  showOnStderr(damage);
  expectDevicesOf(delivery, projection.devices());
  return damage.empty() ? kExitFine : kExitFailed;
}

}  // namespace tev::host
