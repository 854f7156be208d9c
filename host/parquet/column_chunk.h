// The values of one column in one group of rows, as compressed pages in memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "host/parquet/column_format.h"
#include "host/parquet/page_packer.h"
#include "host/support/whole_file.h"

namespace tev::host {

// Rows of equal size, one after the other.
struct Rows {
  const std::uint8_t* first = nullptr;
  std::size_t size = 0;  // bytes of a row
  std::size_t count = 0;
};

// One value in each row.
struct RowField {
  std::string name;
  std::uint32_t builtin_id = 0;
  std::size_t offset = 0;  // bytes from the start of the row
  std::size_t size = 0;    // bytes
};

// What the metadata of a file say about a chunk.
struct ChunkSummary {
  std::uint64_t dictionary_bytes = 0;  // of its page with header; 0: there is none
  std::uint64_t bytes = 0;             // of all pages with headers
  std::uint64_t unpacked_bytes = 0;    // the same before compression
  std::uint64_t values = 0;
  std::string min;  // plain values; both empty: not known
  std::string max;
};

class ColumnChunk {
 public:
  virtual ~ColumnChunk() = default;
  ColumnChunk(const ColumnChunk&) = delete;
  ColumnChunk& operator=(const ColumnChunk&) = delete;

  const RowField& field() const { return field_; }
  const ColumnFormat& format() const { return format_; }

  // Adds the field of each row.
  virtual void add(const Rows& rows) = 0;

  // Bytes that are kept in memory.
  std::size_t memory() const { return page_.size() + pages_.size(); }

  // Writes the pages of the chunk, and begins the next chunk. Throws RunError.
  ChunkSummary finish(WholeFile& file);

 protected:
  ColumnChunk(RowField field, const ColumnFormat& format, PagePacker& packer)
      : field_(std::move(field)), format_(format), packer_(packer) {}

  static constexpr std::size_t kPageBytes = std::size_t{64} << 10;  // before compression

  // Ends the page, if it has values; `encoded` are its bytes in the file.
  void endPage(std::string_view encoded, ParquetEncoding encoding, std::size_t values);

  // Ends the last page, and begins the next chunk. Adds the extremes to the summary.
  virtual void endChunk(ChunkSummary& summary) = 0;

  // The dictionary of the chunk that has just ended.
  struct Dictionary {
    std::string values;  // plain
    std::size_t size = 0;
  };
  virtual Dictionary takeDictionary() { return {}; }

  std::string page_;  // values of the open page

 private:
  void appendPage(std::string& out, std::string_view encoded, ParquetPage kind,
                  ParquetEncoding encoding, std::size_t values);

  RowField field_;
  ColumnFormat format_;
  PagePacker& packer_;
  std::string pages_;  // complete ones with headers
  std::uint64_t unpacked_bytes_ = 0;
  std::uint64_t values_ = 0;
};

// The chunks refer to `packer`.
std::unique_ptr<ColumnChunk> makeColumnChunk(const RowField& field, PagePacker& packer);

}  // namespace tev::host
