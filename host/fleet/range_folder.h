// A folder with the events of a topic in Parquet files, and what is known of its ranges
// (docs/fleet.md).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/fleet/range.h"
#include "host/fleet/range_record.h"
#include "host/fleet/sequences.h"

namespace tev::host {

// What the folder says about a partition.
struct PartitionState {
  std::optional<std::int64_t> next;  // end of its last range; nothing: there is none
  Sequences sequences;               // at this end
  std::vector<std::string> notes;    // what is not as it should be, one sentence each
};

class RangeFolder {
 public:
  // Creates the folder when it is not there. Only when `is_forced_out`, complete ranges survive a
  // power cut. Throws RunError.
  RangeFolder(std::string path, std::string topic, bool is_forced_out);

  // The limits of the topic's ranges in this folder, which are the wanted ones when it is new.
  // Throws RunError when they cannot be read.
  RangeLimits settle(const RangeLimits& wanted);

  // Only for the owner of the partition, who removes what others have left half written. Throws
  // RunError when the last range's `done` file cannot be used.
  PartitionState recover(std::int32_t partition) const;

  // Makes the range a part of the folder, unless it already is. `sequences` is the state at its
  // end. May be repeated when it has failed. Throws RunError.
  void publish(std::int32_t partition, const Range& range, const Sequences& sequences) const;

 private:
  std::string folderOf(std::int32_t partition) const;
  std::string nameOf(std::int32_t partition, const Range& range) const;
  void makeFolder(const std::string& relative) const;
  void sync(const std::string& path) const;
  void rename(const std::string& from, const std::string& to) const;
  void write(const std::string& path, const std::string& text) const;

  std::string path_;
  std::string topic_;
  bool is_forced_out_;
  std::string token_;  // of the names of unfinished files: random
};

}  // namespace tev::host
