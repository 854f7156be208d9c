#include "host/parquet/column_chunk.h"

#include <algorithm>
#include <utility>

#include "host/parquet/number_chunk.h"
#include "host/parquet/text_chunk.h"
#include "tev/schema.h"

namespace tev::host {

ChunkSummary ColumnChunk::finish(std::string& out) {
  ChunkSummary summary;
  endChunk(summary);
  const std::size_t begin = out.size();
  if (const Dictionary dictionary = takeDictionary(); dictionary.size > 0) {
    appendPage(out, dictionary.values, ParquetPage::dictionary, ParquetEncoding::plain,
               dictionary.size);
    summary.dictionary_bytes = out.size() - begin;
  }
  out += pages_;
  pages_.clear();
  summary.bytes = out.size() - begin;
  summary.unpacked_bytes = std::exchange(unpacked_bytes_, 0);
  summary.values = std::exchange(values_, 0);
  return summary;
}

void ColumnChunk::endPage(std::string_view encoded, ParquetEncoding encoding, std::size_t values) {
  if (values == 0) return;
  appendPage(pages_, encoded, ParquetPage::data, encoding, values);
  values_ += values;
  page_.clear();
}

void ColumnChunk::appendPage(std::string& out, std::string_view encoded, ParquetPage kind,
                             ParquetEncoding encoding, std::size_t values) {
  packer_.pack(encoded, packed_);
  CompactThrift header;
  header.i32(1, static_cast<std::int32_t>(kind));
  header.i32(2, static_cast<std::int32_t>(encoded.size()));
  header.i32(3, static_cast<std::int32_t>(packed_.size()));
  const auto describePage = [&] {
    header.i32(1, static_cast<std::int32_t>(values));
    header.i32(2, static_cast<std::int32_t>(encoding));
  };
  if (kind == ParquetPage::dictionary) {
    header.structure(7, describePage);
  } else {
    header.structure(5, [&] {
      describePage();
      header.i32(3, static_cast<std::int32_t>(ParquetEncoding::runs));  // of levels, which no
      header.i32(4, static_cast<std::int32_t>(ParquetEncoding::runs));  // column here has
    });
  }
  const std::string text = header.finish();
  unpacked_bytes_ += text.size() + encoded.size();
  out += text;
  out += packed_;
}

std::unique_ptr<ColumnChunk> makeColumnChunk(const RowField& field, PagePacker& packer) {
  return field.builtin_id == TEV_TYPE_CHAR ? makeTextChunk(field, packer)
                                           : makeNumberChunk(field, packer);
}

}  // namespace tev::host
