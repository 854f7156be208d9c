#include "host/commands/decode.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

#include "host/commands/writing.h"
#include "host/figures/figures.h"
#include "host/outputs/delivery.h"
#include "host/outputs/record_marks.h"
#include "host/support/bounded_write.h"
#include "host/support/errors.h"
#include "host/support/stderr_text.h"
#include "host/support/stop_signal.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kUsualUpdate{1000};  // of the run that was recorded

// A line on the terminal that is written again and again.
class Progress {
 public:
  explicit Progress(const OutputFile& output)
      : is_shown_(isatty(STDERR_FILENO) == 1 && !output.isTerminal()) {}
  ~Progress() {
    if (is_drawn_) write("\r\x1b[K");
  }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void show(const CaptureSource& source) {
    constexpr std::chrono::milliseconds kEvery{200};
    const auto now = Clock::now();
    if (!is_shown_ || now - drawn_ < kEvery) return;
    drawn_ = now;
    is_drawn_ = true;
    write(fmt::format("\r{:3.0f} %", 100 * static_cast<double>(source.readBytes()) /
                                         static_cast<double>(source.size())));
  }

 private:
  static void write(const std::string& text) {
    writeAll(STDERR_FILENO, text, std::chrono::milliseconds(100));
  }

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

// The output must not be one of the files that are read.
void expectOtherFile(const OutputFile& output, const std::vector<std::string>& inputs) {
  struct stat written {};
  if (fstat(output.descriptor(), &written) != 0) return;
  for (const std::string& path : inputs) {
    struct stat read {};
    if (stat(path.c_str(), &read) == 0 && read.st_dev == written.st_dev &&
        read.st_ino == written.st_ino)
      throw UsageError(fmt::format("--output {}: this capture is to be read", asPrintable(path)));
  }
}

}  // namespace

int decode(const RunOptions& options, const DecodeOptions& decode) {
  const StopSignal stop_signal;
  CaptureSource source(decode.files, decode.span);
  OutputFile file(textPath(options));
  expectOtherFile(file, decode.files);
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
  if (StopSignal::requests() > 0)
    throw RunError(
        fmt::format("interrupted after {} of {} bytes", source.readBytes(), source.size()));
  const std::string damage = damageText(source);
  showOnStderr(damage);
  expectDevicesOf(delivery, projection.devices());
  return damage.empty() ? kExitFine : kExitFailed;
}

}  // namespace tev::host
