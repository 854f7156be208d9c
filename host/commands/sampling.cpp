#include "host/commands/sampling.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "host/support/last_wait.h"
#include "host/support/log.h"
#include "host/support/stop_signal.h"
#include "host/support/terminal_guard.h"

namespace tev::host {
namespace {

constexpr std::size_t kNotes = 3;  // log lines below the live table
constexpr std::chrono::seconds kNoticed{1};
constexpr std::chrono::milliseconds kSilence{1500};  // a call may wait a second for a read
constexpr std::chrono::milliseconds kRedraw{500};    // while the source does not answer
constexpr std::chrono::milliseconds kGlance{1};      // for keys, while the source is asked

// After the end of the run, the reader of the output may take nothing for kGrace, and may take
// kLongestGrace in all.
constexpr std::chrono::seconds kGrace{1};
constexpr std::chrono::seconds kLongestGrace{10};

// After its stop, a plug-in that has not answered for so many seconds is not asked for more events.
constexpr double kLongestSilence = std::chrono::duration<double>(LastWait::kLongest).count();

}  // namespace

Sampling::Sampling(const RunOptions& options, EventSource& source, Delivery& delivery,
                   const Figures& figures, const Interaction* interaction)
    : options_(options),
      source_(source),
      delivery_(delivery),
      interaction_(interaction),
      announcements_(delivery, figures) {}

void Sampling::run() {
  start_ = Clock::now();
  if (options_.duration) end_ = start_ + *options_.duration;
  delivery_.update(status());
  announcements_.say();
  fetchUntilTheEnd();
  if (stopSource()) drain();
  delivery_.end(status());
  announcements_.say();
}

double Sampling::elapsedSeconds() const {
  return std::chrono::duration<double>(Clock::now() - start_).count();
}

void Sampling::fetchUntilTheEnd() {
  Clock::time_point due = start_;
  bool more = true;
  while (more && !delivery_.isComplete() && !delivery_.isHopeless()) {
    due = nextDue(due);
    waitUntil(options_.duration ? std::min(due, end_) : due);
    if (isOver()) return;  // drain() fetches the remaining events
    more = ask([this] {
      return source_.fetch(take_, [this] {
        showSilence();
        return isOver();
      });
    });
    ++fetches_;
    delivery_.update(status());
    announcements_.say();
  }
}

// Calls a function that waits for the source.
bool Sampling::ask(const std::function<bool()>& call) {
  asked_ = Clock::now();
  const bool result = call();
  noteAnswer();
  // After the end of the run, the call was possibly interrupted.
  if (!isOver() && std::exchange(said_silent_, false))
    Log::instance().say("tev-host: the plug-in answers again");
  return result;
}

void Sampling::noteAnswer() {
  if (asked_) answering_ += Clock::now() - *asked_;
  asked_.reset();
}

bool Sampling::stopSource() {
  return ask([this] {
    LastWait wait("the plug-in to stop");
    return source_.stop([&] {
      showSilence();
      return wait.isCutShort();
    });
  });
}

void Sampling::drain() {
  ask([this] {
    source_.drain(take_, [this] {
      showSilence();
      return StopSignal::requests() > 1 || silentSeconds() >= kLongestSilence;
    });
    return true;
  });
}

// The events are taken while the source waits.
void Sampling::take(Blocks blocks) {
  noteAnswer();
  delivery_.take(blocks);
  asked_ = Clock::now();
}

std::optional<double> Sampling::silentSeconds() const {
  if (!asked_ || Clock::now() - *asked_ < kSilence) return std::nullopt;
  return std::chrono::duration<double>(Clock::now() - *asked_).count();
}

void Sampling::showSilence() {
  const bool redraw = TerminalGuard::isRedrawDue() ||
                      (interaction_ && StopSignal::waitUntil(Clock::now() + kGlance, descriptor()));
  const auto silent = silentSeconds();
  if (silent && !std::exchange(said_silent_, true))
    Log::instance().say("tev-host: " + silenceText(*silent));
  const auto now = Clock::now();
  if (!redraw && (!silent || now - last_redraw_ < kRedraw)) return;
  last_redraw_ = now;
  delivery_.redraw(status());
}

std::string Sampling::silenceText(double seconds) const {
  const std::string reads = source_.pendingReads();
  return fmt::format("the plug-in has not answered for {:.0f} s{}", seconds,
                     reads.empty() ? "" : "; " + reads);
}

void Sampling::waitUntil(Clock::time_point time) {
  const auto interval = updateInterval();
  while (StopSignal::requests() == 0 && Clock::now() < time && updateInterval() == interval) {
    const bool has_input = StopSignal::waitUntil(time, descriptor());
    if (has_input || TerminalGuard::isRedrawDue()) delivery_.redraw(status());
  }
}

bool Sampling::isOver() const {
  return StopSignal::requests() > 0 || (options_.duration && Clock::now() >= end_);
}

bool Sampling::isWorthWaiting(Clock::duration stalled, const std::string& reader) {
  status();  // warns of losses
  if (stalled >= kNoticed && !std::exchange(said_stalled_, true))
    Log::instance().say(fmt::format("tev-host: the reader of {} takes nothing", reader));
  if (!isOver()) return true;
  const auto now = Clock::now();
  if (!reader_is_last_since_) reader_is_last_since_ = now;
  const auto waited = now - *reader_is_last_since_;
  return StopSignal::requests() <= 1 && waited < kLongestGrace &&
         (waited < kGrace || stalled < kGrace);
}

int Sampling::descriptor() const {
  return interaction_ ? interaction_->descriptor() : -1;
}

// The plug-in's buffers are made for the interval of the options, so it is not exceeded.
std::chrono::milliseconds Sampling::updateInterval() const {
  return interaction_ ? std::min(options_.update, interaction_->interval()) : options_.update;
}

// Due times are on a fixed grid. Missed due times are skipped.
Sampling::Clock::time_point Sampling::nextDue(Clock::time_point due) const {
  const Clock::duration late = std::max(Clock::now() - due, Clock::duration::zero());
  const auto update = updateInterval();
  return due + update * (late / update + 1);
}

RunStatus Sampling::status() {
  RunStatus status;
  status.source = source_.name();
  status.elapsed_seconds = elapsedSeconds();
  status.now_usec = source_.nowUsec();
  status.devices = source_.counts().value_or(std::vector<DeviceCounts>{});
  for (const DeviceCounts& one : status.devices) status.lost_samples += one.lost;
  if (status.lost_samples > 0) warnOfLoss();
  status.notes = Log::instance().lastHeldBack(kNotes);
  status.fetches = fetches_;
  status.fetch_seconds = std::chrono::duration<double>(answering_).count();
  status.silent_seconds = silentSeconds();
  status.hang =
      status.silent_seconds ? silenceText(*status.silent_seconds) : source_.pendingReads();
  return status;
}

void Sampling::warnOfLoss() {
  if (std::exchange(warned_of_loss_, true)) return;
  Log::instance().say(
      "tev-host: samples are being lost: lower --update or raise multipath-max-buffer-size");
}

}  // namespace tev::host
