// Reads the batches of one file of a spool.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "host/bus/batch_store.h"
#include "host/capture/chunk_reader.h"
#include "host/capture/format.h"

namespace tev::host {

// The number of the next event of a run.
struct RunPlace {
  RunId run;
  std::uint64_t next = 0;
};

class SpoolReader {
 public:
  // `lost` is told of batches between two sound ones that cannot be read. Throws CannotOpen, and
  // RunError when it is not the file of a spool.
  SpoolReader(const std::string& path, BatchStore::Dropped lost);

  // The batches of the file before this one were read up to there, and those behind it could not be
  // read.
  void follow(const RunPlace& damaged);

  // At the end of a file: where the damage begins that goes up to the end.
  std::optional<RunPlace> damagedEnd() const;

  // The next batch, also of those that were added in the meantime; nothing at the end of the file.
  // Throws RunError when the file cannot be read.
  std::optional<Batch> next();

 private:
  void countDamage(const EventNumbers& numbers);
  void sayDamages();

  ChunkReader chunks_;
  BatchStore::Dropped lost_;
  RunId run_;  // of all batches
  std::shared_ptr<const RunSchemas> schemas_;
  std::optional<EventNumbers> numbers_;   // of the next batch
  std::optional<std::uint64_t> follows_;  // the first number behind the last batch
  std::uint64_t last_ = 0;                // offset of the last batch
  bool has_said_ = false;
};

}  // namespace tev::host
