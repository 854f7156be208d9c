#include "host/parquet/parquet_file.h"

#include <algorithm>
#include <numeric>
#include <string_view>

namespace tev::host {
namespace {

constexpr std::string_view kMagic = "PAR1";

constexpr std::size_t kMaxBatch = std::size_t{1} << 20;  // bytes
constexpr std::size_t kMaxBatchRows = 1024;
constexpr std::uint64_t kGroupRows = 120 * kMaxBatchRows;

}  // namespace

ParquetFile::ParquetFile(const std::string& path, const std::vector<RowField>& fields,
                         std::size_t row_size, std::size_t max_memory)
    : file_(path),
      max_memory_(max_memory),
      row_size_(row_size),
      batch_rows_(std::clamp<std::size_t>(kMaxBatch / row_size, 1, kMaxBatchRows)),
      batch_(row_size * batch_rows_) {
  for (const RowField& field : fields) columns_.push_back(makeColumnChunk(field, packer_));
  file_.write(kMagic);
}

void ParquetFile::complete(const KeyValues& texts) {
  endGroup();
  std::string end = metadata(texts);
  const auto length = static_cast<std::uint32_t>(end.size());
  for (std::size_t i = 0; i < sizeof length; ++i) end += static_cast<char>(length >> 8 * i);
  end += kMagic;
  file_.write(end);
}

void ParquetFile::addBatch() {
  const Rows rows{batch_.data(), row_size_, std::exchange(row_count_, 0)};
  std::size_t memory = 0;
  for (const auto& column : columns_) {
    column->add(rows);
    memory += column->memory();
  }
  group_rows_ += rows.count;
  if (group_rows_ >= kGroupRows || memory >= max_memory_) endGroup();
}

void ParquetFile::endGroup() {
  if (row_count_ > 0) addBatch();
  if (group_rows_ == 0) return;
  Group group{std::exchange(group_rows_, 0), {}};
  rows_ += group.rows;
  for (const auto& column : columns_) {
    const std::uint64_t offset = file_.size();
    group.chunks.push_back({column->finish(file_), offset});
  }
  groups_.push_back(std::move(group));
}

// The numbers of the fields and the types are those of the structures FileMetaData, RowGroup,
// ColumnChunk and ColumnMetaData of the format.
std::string ParquetFile::metadata(const KeyValues& texts) const {
  constexpr std::int32_t kVersion = 1;
  CompactThrift thrift;
  thrift.i32(1, kVersion);
  thrift.structures(2, 1 + columns_.size(), [&](std::size_t i) {
    if (i > 0) {
      host::describe(thrift, columns_[i - 1]->field().name, columns_[i - 1]->format());
      return;
    }
    thrift.bytes(4, "events");
    thrift.i32(5, static_cast<std::int32_t>(columns_.size()));
  });
  thrift.i64(3, static_cast<std::int64_t>(rows_));
  thrift.structures(4, groups_.size(), [&](std::size_t i) { describe(thrift, groups_[i]); });
  thrift.structures(5, texts.size(), [&](std::size_t i) {
    thrift.bytes(1, texts[i].first);
    thrift.bytes(2, texts[i].second);
  });
  thrift.bytes(6, "tev-host version " TEV_VERSION);
  // The order of the values: that of their types. Without it, readers must not use the extremes.
  thrift.structures(7, columns_.size(), [&](std::size_t) { thrift.emptyStructure(1); });
  return thrift.finish();
}

void ParquetFile::describe(CompactThrift& thrift, const Group& group) const {
  thrift.structures(1, group.chunks.size(), [&](std::size_t i) {
    thrift.i64(2, 0);  // the metadata are not repeated beside the chunk; some readers need this
    thrift.structure(3, [&] { describe(thrift, *columns_[i], group.chunks[i]); });
  });
  const auto bytes = std::accumulate(group.chunks.begin(), group.chunks.end(), std::uint64_t{0},
                                     [](std::uint64_t sum, const WrittenChunk& chunk) {
                                       return sum + chunk.summary.unpacked_bytes;
                                     });
  thrift.i64(2, static_cast<std::int64_t>(bytes));
  thrift.i64(3, static_cast<std::int64_t>(group.rows));
}

void ParquetFile::describe(CompactThrift& thrift, const ColumnChunk& column,
                           const WrittenChunk& chunk) const {
  const ChunkSummary& summary = chunk.summary;
  const bool has_dictionary = summary.dictionary_bytes > 0;
  std::vector<std::int32_t> encodings{static_cast<std::int32_t>(ParquetEncoding::plain),
                                      static_cast<std::int32_t>(ParquetEncoding::runs)};
  if (has_dictionary) encodings.push_back(static_cast<std::int32_t>(ParquetEncoding::dictionary));
  thrift.i32(1, static_cast<std::int32_t>(column.format().type));
  thrift.i32s(2, encodings);
  thrift.texts(3, {column.field().name});
  thrift.i32(4, kParquetZstd);
  thrift.i64(5, static_cast<std::int64_t>(summary.values));
  thrift.i64(6, static_cast<std::int64_t>(summary.unpacked_bytes));
  thrift.i64(7, static_cast<std::int64_t>(summary.bytes));
  thrift.i64(9, static_cast<std::int64_t>(chunk.offset + summary.dictionary_bytes));
  if (has_dictionary) thrift.i64(11, static_cast<std::int64_t>(chunk.offset));
  thrift.structure(12, [&] {
    thrift.i64(3, 0);  // no value is missing
    if (summary.min.empty() && summary.max.empty()) return;
    thrift.bytes(5, summary.max);
    thrift.bytes(6, summary.min);
  });
}

}  // namespace tev::host
