// Keeps batches in a folder of capture files, until the bus has acknowledged them. What is left
// when the process ends is sent by the next run.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

#include "host/bus/batch_store.h"
#include "host/bus/bus_options.h"
#include "host/bus/spool_reader.h"
#include "host/capture/capture_file.h"
#include "host/capture/head.h"

namespace tev::host {

// Each batch is written before it is handed out. A file is removed when all of its batches are
// done. After a crash, the batches of a file may be handed out a second time.
class Spool final : public BatchStore {
 public:
  // `head` describes the recording. When the folder would become too large, the oldest file is
  // given up. Throws RunError when the folder cannot be used, or another process uses it.
  Spool(SpoolOptions options, CaptureHead head, Dropped dropped);
  ~Spool() override;

  void push(Batch batch) override;

  // Like push(). False: the file could not be written, which was said, and the batch was not taken.
  bool keep(const Batch& batch);

  // Whether every batch was handed out.
  bool isRead() const;

  // Removes the oldest file with a count of its batches. False when only the one that is written is
  // there.
  bool giveUpOldest();

  std::optional<StoredBatch> next() override;
  void done(std::uint64_t number) override;
  void close() override;
  bool accountsFor(std::uint64_t number) const override;
  bool isEmpty() const override { return handed_out_.empty() && isRead(); }
  std::uint64_t waitingBytes() const override { return bytes_; }
  std::string leftText() const override;

 private:
  struct File {
    std::uint64_t number;  // its name
    std::uint64_t bytes = 0;
    std::uint64_t in_use = 0;  // batches that were handed out and are not done
    bool is_read = false;      // all of its batches were handed out
  };

  std::string pathOf(std::uint64_t number) const;
  void lock();
  void findFiles();
  bool isWritten(const File& file) const { return writer_ && &file == &files_.back(); }
  void beginFile(const Batch& batch);
  void endFile();
  void noteSize();
  std::optional<Batch> readFrom(File& file);
  void leaveReader();
  void giveUp(File& file, const std::string& problem);
  void removeDone();
  void remove(const File& file);
  void sayOnce(const std::string& problem);

  SpoolOptions options_;
  CaptureHead head_;  // of the files that are written
  Dropped dropped_;
  int lock_ = -1;
  std::deque<File> files_;               // in the order of the batches
  std::uint64_t bytes_ = 0;              // of all files
  std::unique_ptr<CaptureFile> writer_;  // of the last file
  std::uint64_t unread_ = 0;             // batches of the last file, if it is written
  bool is_failing_ = false;              // the disk did not take the last batch
  bool is_full_ = false;                 // that files are given up has been said

  std::unique_ptr<SpoolReader> reader_;  // of the first file that is not read
  std::optional<RunPlace> damaged_end_;  // of the file before it

  std::unordered_map<std::uint64_t, std::uint64_t> handed_out_;  // batch to file, by their numbers
  std::uint64_t next_number_ = 0;
  std::string said_;
};

}  // namespace tev::host
