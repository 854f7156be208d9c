#include "host/bus/spool.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

#include "host/capture/capture_output.h"
#include "host/support/errors.h"
#include "host/support/log.h"
#include "host/support/number_text.h"
#include "host/support/short_number.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kFileBytes = std::uint64_t{4} << 20;  // then the next file is begun
constexpr std::size_t kDigits = 12;                           // of a file's name
constexpr const char* kExtension = ".tevcap";

// The number in the name of a spool's file; nothing for other files.
std::optional<std::uint64_t> numberOf(const fs::path& path) {
  const std::string digits = path.stem().string();
  if (path.extension() != kExtension || digits.size() < kDigits) return std::nullopt;
  return parseNumber<std::uint64_t>(digits);
}

}  // namespace

Spool::Spool(SpoolOptions options, CaptureHead head, Dropped dropped)
    : options_(std::move(options)), head_(std::move(head)), dropped_(std::move(dropped)) {
  std::error_code error;
  fs::create_directories(options_.folder, error);
  lock();
  try {
    findFiles();
  } catch (const fs::filesystem_error& failure) {
    ::close(lock_);
    throw RunError(fmt::format("cannot read the spool {}: {}", asPrintable(options_.folder),
                               failure.code().message()));
  } catch (...) {
    ::close(lock_);
    throw;
  }
}

Spool::~Spool() {
  ::close(lock_);
}

void Spool::lock() {
  const std::string path = (fs::path(options_.folder) / "lock").string();
  lock_ = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  if (lock_ < 0)
    throw RunError(fmt::format("cannot use the spool {}: {}", asPrintable(options_.folder),
                               std::generic_category().message(errno)));
  if (flock(lock_, LOCK_EX | LOCK_NB) == 0) return;
  ::close(lock_);
  throw RunError(fmt::format("the spool {} is used by another run", asPrintable(options_.folder)));
}

void Spool::findFiles() {
  for (const fs::directory_entry& entry : fs::directory_iterator(options_.folder)) {
    const auto number = numberOf(entry.path());
    if (!number || !entry.is_regular_file()) continue;
    if (access(entry.path().c_str(), R_OK) != 0)
      throw RunError(fmt::format("cannot read {} of the spool: {}",
                                 asPrintable(entry.path().string()),
                                 std::generic_category().message(errno)));
    files_.push_back({.number = *number, .bytes = entry.file_size()});
    bytes_ += files_.back().bytes;
  }
  std::ranges::sort(files_, {}, &File::number);
}

std::string Spool::pathOf(std::uint64_t number) const {
  return (fs::path(options_.folder) / fmt::format("{:0{}}{}", number, kDigits, kExtension))
      .string();
}

void Spool::push(Batch batch) {
  if (!keep(batch)) dropped_(batch);
}

bool Spool::keep(const Batch& batch) {
  try {
    if (!writer_ || writer_->size() >= kFileBytes) beginFile(batch);
    writer_->writeNumbers({batch.first, batch.events});
    writer_->writeEvents(batch.blocks, batch.first_usec, batch.last_usec);
    noteSize();
    ++unread_;
    said_.clear();
    if (std::exchange(is_failing_, false))
      Log::instance().say(fmt::format("tev-host: the spool {} takes the events again",
                                      asPrintable(options_.folder)));
  } catch (const RunError& error) {
    if (!std::exchange(is_failing_, true))
      Log::instance().say(fmt::format("tev-host: {}; the events wait in memory", error.what()));
    endFile();  // the numbers of a file's batches follow each other
    return false;
  }
  while (bytes_ > options_.most_bytes && giveUpOldest()) {
  }
  return true;
}

void Spool::beginFile(const Batch& batch) {
  endFile();
  const std::uint64_t number = files_.empty() ? 1 : files_.back().number + 1;
  head_.start = readClocks();
  head_.bus_source = batch.run.source;
  head_.bus_run = runText(batch.run.start);
  head_.schemas = batch.schemas->texts;
  head_.schema_ids = batch.schemas->ids;
  writer_ = std::make_unique<CaptureFile>(pathOf(number), head_);
  files_.push_back({.number = number});
  noteSize();
  unread_ = 0;
}

// Of the file that is written.
void Spool::noteSize() {
  bytes_ += writer_->size() - files_.back().bytes;
  files_.back().bytes = writer_->size();
}

// The rest of the last file is read like that of an older one.
void Spool::endFile() {
  if (!writer_) return;
  try {
    writer_->finish();
  } catch (const RunError&) {  // its batches can be read without the index
  }
  noteSize();
  writer_.reset();
}

std::optional<StoredBatch> Spool::next() {
  for (;;) {
    const auto file = std::ranges::find(files_, false, &File::is_read);
    if (file == files_.end() || (isWritten(*file) && unread_ == 0)) return std::nullopt;
    std::optional<Batch> batch;
    try {
      batch = readFrom(*file);
    } catch (const CannotOpen& error) {  // in the meantime, what is behind it must wait, too
      std::error_code unknown;
      if (fs::exists(pathOf(file->number), unknown) || unknown) {
        sayOnce(error.what());
        return std::nullopt;
      }
      sayOnce(fmt::format("{}; its events are not sent", error.what()));
    }
    if (batch) {
      if (isWritten(*file)) --unread_;
      ++file->in_use;
      handed_out_.emplace(next_number_, file->number);
      return StoredBatch{next_number_++, *std::move(batch)};
    }
    leaveReader();
    if (isWritten(*file)) endFile();  // what was written cannot be read
    file->is_read = true;
    removeDone();
  }
}

// Nothing when the file has been read to its end. Throws CannotOpen.
std::optional<Batch> Spool::readFrom(File& file) {
  try {
    if (!reader_) {
      reader_ = std::make_unique<SpoolReader>(pathOf(file.number), dropped_);
      if (damaged_end_) reader_->follow(*damaged_end_);
    }
    return reader_->next();
  } catch (const CannotOpen&) {
    throw;
  } catch (const RunError& error) {
    giveUp(file, error.what());
    return std::nullopt;
  }
}

// The next file is read.
void Spool::leaveReader() {
  damaged_end_ = reader_ ? reader_->damagedEnd() : std::nullopt;
  reader_.reset();
}

// The file stays for a person to look at.
void Spool::giveUp(File& file, const std::string& problem) {
  const std::string path = pathOf(file.number);
  const std::string kept = path + ".damaged";
  Log::instance().say(fmt::format("tev-host: {}; its events are not sent, and it is now {}",
                                  problem, asPrintable(kept)));
  if (rename(path.c_str(), kept.c_str()) == 0) bytes_ -= std::exchange(file.bytes, 0);
}

// The batches that were not handed out are counted before the file is removed.
bool Spool::giveUpOldest() {
  if (files_.empty() || isWritten(files_.front())) return false;
  File& file = files_.front();
  if (!std::exchange(is_full_, true))
    Log::instance().say(
        fmt::format("tev-host: the spool {} is full: the oldest events are given up",
                    asPrintable(options_.folder)));
  if (!file.is_read) {
    try {
      while (const auto batch = readFrom(file)) dropped_(*batch);
    } catch (const CannotOpen& error) {
      Log::instance().say(fmt::format("tev-host: {}; its events are not counted", error.what()));
    }
    leaveReader();
  }
  remove(file);
  files_.pop_front();
  return true;
}

void Spool::done(std::uint64_t number) {
  const auto found = handed_out_.find(number);
  if (found == handed_out_.end()) return;
  const auto file = std::ranges::find(files_, found->second, &File::number);
  handed_out_.erase(found);
  if (file == files_.end()) return;  // it was given up
  --file->in_use;
  removeDone();
}

void Spool::removeDone() {
  std::erase_if(files_, [this](const File& file) {
    const bool is_done = file.is_read && file.in_use == 0;
    if (is_done) remove(file);
    return is_done;
  });
}

void Spool::remove(const File& file) {
  bytes_ -= file.bytes;
  if (bytes_ < options_.most_bytes / 2) is_full_ = false;
  const std::string path = pathOf(file.number);
  if (unlink(path.c_str()) != 0 && errno != ENOENT)
    sayOnce(fmt::format("cannot remove {}: {}", asPrintable(path),
                        std::generic_category().message(errno)));
}

void Spool::close() {
  const bool is_done = writer_ && unread_ == 0 && files_.back().in_use == 0;
  endFile();
  if (!is_done) return;
  remove(files_.back());
  files_.pop_back();
}

// The file may have been given up while the bus had not acknowledged the batch yet.
bool Spool::accountsFor(std::uint64_t number) const {
  const auto found = handed_out_.find(number);
  return found != handed_out_.end() &&
         std::ranges::find(files_, found->second, &File::number) != files_.end();
}

bool Spool::isRead() const {
  return std::ranges::all_of(files_, [this](const File& file) {
    return file.is_read || (isWritten(file) && unread_ == 0);
  });
}

std::string Spool::leftText() const {
  if (isEmpty()) return "";
  return fmt::format("{}B in {} stay for the next run", shortNumber(static_cast<double>(bytes_)),
                     asPrintable(options_.folder));
}

// The same problem again and again is one line.
void Spool::sayOnce(const std::string& problem) {
  if (std::exchange(said_, problem) != problem) Log::instance().say("tev-host: " + problem);
}

}  // namespace tev::host
