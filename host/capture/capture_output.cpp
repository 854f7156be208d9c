#include "host/capture/capture_output.h"

#include <fmt/format.h>
#include <time.h>

#include <algorithm>
#include <utility>

#include "host/capture/parts.h"
#include "host/support/errors.h"
#include "host/support/log.h"
#include "host/support/short_number.h"
#include "host/support/stop_signal.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

constexpr std::chrono::seconds kRetry{10};        // after a new file could not be created
constexpr std::chrono::seconds kLongestSync{10};  // at the end

std::uint64_t nanosecondsOf(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000'000 +
         static_cast<std::uint64_t>(time.tv_nsec);
}

// Whether anything but the time of the last sample has changed.
bool isNews(const std::vector<DeviceCounts>& before, const std::vector<DeviceCounts>& now) {
  return !std::ranges::equal(before, now, [](DeviceCounts a, DeviceCounts b) {
    a.last_good_usec = b.last_good_usec = 0;
    return a == b;
  });
}

}  // namespace

ClockPair readClocks() {
  return {nanosecondsOf(CLOCK_REALTIME), nanosecondsOf(CLOCK_MONOTONIC)};
}

CaptureOutput::CaptureOutput(CaptureOptions options, CaptureHead head, const SchemaView& schema)
    : options_(std::move(options)), head_(std::move(head)), schema_(schema) {
  for (const SchemaView::Schema& one : schema.schemas()) {
    head_.schemas.push_back(one.text);
    head_.schema_ids.push_back(one.id);
  }
}

void CaptureOutput::begin() {
  if (options_.rotates())
    for (const std::string& part : existingParts(options_.path))
      if (isBeingWritten(part))
        throw RunError(fmt::format("{} is being written by another run", asPrintable(part)));
  openNext();
}

std::string CaptureOutput::nextPath() const {
  if (!options_.rotates() && files_ == 0) return options_.path;
  return partPath(options_.path, readClocks().real / 1'000'000'000, files_ + 1);
}

void CaptureOutput::openNext() {
  if (file_) closeChunk();
  head_.start = readClocks();
  head_.part = static_cast<std::uint32_t>(files_);
  auto next = std::make_unique<CaptureFile>(nextPath(), head_);
  // Each file begins with the counts so far, so that what is missing in it can be told.
  if (!counts_.empty()) next->writeCounts(counts_, head_.start.real / 1000);
  try {
    closeFile();
  } catch (const RunError& error) {  // the new file may be on another disk
    Log::instance().say(fmt::format("tev-host: {}", error.what()));
  }
  file_ = std::move(next);
  last_path_ = file_->path();
  ++files_;
  opened_ = std::chrono::steady_clock::now();
  if (options_.keep) removeOldParts(options_.path, *options_.keep, last_path_);
}

void CaptureOutput::closeFile() {
  const std::unique_ptr<CaptureFile> file = std::exchange(file_, nullptr);
  if (!file) return;
  if (options_.sync != CaptureSync::none) sync_.request(file->descriptor(), file->path());
  stored_bytes_ += file->size();
  event_bytes_ += file->eventBytes();
  file->finish();
}

void CaptureOutput::blocks(Blocks blocks) {
  forEachBlock(schema_, blocks, [this](const Block& block) {
    if (!pending_.empty() && pending_.size() + block.bytes.size() > kChunkOfEvents) closeChunk();
    if (pending_.empty()) first_usec_ = last_usec_ = block.timestamp_usec;
    first_usec_ = std::min(first_usec_, block.timestamp_usec);
    last_usec_ = std::max(last_usec_, block.timestamp_usec);
    pending_.insert(pending_.end(), block.bytes.begin(), block.bytes.end());
  });
}

void CaptureOutput::closeChunk() {
  if (pending_.empty()) return;
  file_->writeEvents(pending_, first_usec_, last_usec_);
  pending_.clear();
}

void CaptureOutput::update(const RunStatus& status) {
  if (!file_) return;
  closeChunk();
  noteCounts(status);
  file_->writeClocks(readClocks());
  sync();
  rotateIfDue();
}

void CaptureOutput::end(const RunStatus& status) {
  if (!file_) return;
  closeChunk();
  noteCounts(status);
  finish();
}

void CaptureOutput::leave() {
  try {
    finish();
  } catch (const RunError& error) {
    Log::instance().say(fmt::format("tev-host: {}", error.what()));
  }
}

// Also after a run that failed: what has arrived is recorded.
void CaptureOutput::finish() {
  if (!file_) return;
  closeChunk();
  file_->writeClocks(readClocks());
  closeFile();
  if (const std::string failure = sync_.wait(kLongestSync); !failure.empty())
    throw RunError(failure);
}

void CaptureOutput::noteCounts(const RunStatus& status) {
  if (!isNews(counts_, status.devices)) return;
  file_->writeCounts(status.devices, status.now_usec);
  counts_ = status.devices;
}

void CaptureOutput::sync() {
  if (options_.sync == CaptureSync::update) sync_.request(file_->descriptor(), file_->path());
  if (const std::string failure = sync_.takeFailure(); !failure.empty())
    Log::instance().say("tev-host: " + failure);
}

void CaptureOutput::rotateIfDue() {
  const auto age = std::chrono::steady_clock::now() - opened_;
  const bool is_due = (options_.rotate_bytes && file_->size() >= *options_.rotate_bytes) ||
                      (options_.rotate_time && age >= *options_.rotate_time);
  const int hang_ups = StopSignal::hangUps();
  const bool is_wanted = std::exchange(hang_ups_, hang_ups) != hang_ups;
  if (is_wanted || (is_due && std::chrono::steady_clock::now() >= next_try_)) tryToOpenNext();
}

// When the next file cannot be created, the current one is continued.
void CaptureOutput::tryToOpenNext() {
  try {
    openNext();
  } catch (const RunError& error) {
    next_try_ = std::chrono::steady_clock::now() + kRetry;
    Log::instance().say(
        fmt::format("tev-host: {}; going on in {}", error.what(), asPrintable(file_->path())));
  }
}

std::string CaptureOutput::summary() const {
  if (files_ == 0) return "";
  const std::uint64_t stored = stored_bytes_ + (file_ ? file_->size() : 0);
  const std::uint64_t events = event_bytes_ + (file_ ? file_->eventBytes() : 0);
  return fmt::format(
      "  recorded {}B of events in {}B: {}\n", shortNumber(static_cast<double>(events)),
      shortNumber(static_cast<double>(stored)),
      files_ == 1 ? asPrintable(last_path_)
                  : fmt::format("{} files, the last is {}", files_, asPrintable(last_path_)));
}

}  // namespace tev::host
