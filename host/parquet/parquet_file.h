// Parquet files: columns of one table, for analysis by other programs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/parquet/column_chunk.h"
#include "host/parquet/page_packer.h"
#include "host/support/whole_file.h"

namespace tev::host {

// The rows are kept in memory until their group is complete. An incomplete file could not be read,
// so it is not left behind.
class ParquetFile {
 public:
  using KeyValues = std::vector<std::pair<std::string, std::string>>;

  // Creates the file. `row_size` is in bytes. A group of rows ends when it keeps `max_memory`
  // bytes. Throws RunError.
  ParquetFile(const std::string& path, const std::vector<RowField>& fields, std::size_t row_size,
              std::size_t max_memory);

  // The next row, which the caller fills in at once. Throws RunError.
  std::uint8_t* addRow() {
    if (row_count_ == batch_rows_) addBatch();
    return &batch_[row_count_++ * row_size_];
  }

  // Writes the rest, with `texts` as metadata for the user. Throws RunError.
  void complete(const KeyValues& texts);

  // Gives the complete file its name. Throws RunError.
  void publish(bool is_forced_out = true) { file_.finish(is_forced_out); }

 private:
  struct WrittenChunk {
    ChunkSummary summary;
    std::uint64_t offset;  // in the file
  };
  struct Group {
    std::uint64_t rows;
    std::vector<WrittenChunk> chunks;
  };

  void addBatch();
  void endGroup();
  std::string metadata(const KeyValues& texts) const;
  void describe(CompactThrift& thrift, const Group& group) const;
  void describe(CompactThrift& thrift, const ColumnChunk& column, const WrittenChunk& chunk) const;

  WholeFile file_;
  std::size_t max_memory_;
  PagePacker packer_;
  std::vector<std::unique_ptr<ColumnChunk>> columns_;
  std::size_t row_size_;
  std::size_t batch_rows_;           // room in the batch
  std::vector<std::uint8_t> batch_;  // rows that are not in the columns yet
  std::size_t row_count_ = 0;
  std::uint64_t group_rows_ = 0;
  std::uint64_t rows_ = 0;  // in the groups
  std::vector<Group> groups_;
};

}  // namespace tev::host
