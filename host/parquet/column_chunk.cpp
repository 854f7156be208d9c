#include "host/parquet/column_chunk.h"

#include <utility>

#include "host/parquet/number_chunk.h"
#include "host/parquet/text_chunk.h"
#include "tev/schema.h"

namespace tev::host {

ChunkSummary ColumnChunk::finish(WholeFile& file) {
  ChunkSummary summary;
  endChunk(summary);
  if (const Dictionary dictionary = takeDictionary(); dictionary.size > 0) {
    std::string page;
    appendPage(page, dictionary.values, ParquetPage::dictionary, ParquetEncoding::plain,
               dictionary.size);
    file.write(page);
    summary.dictionary_bytes = page.size();
  }
  file.write(pages_);
  summary.bytes = summary.dictionary_bytes + pages_.size();
  pages_.clear();
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
  const std::string_view packed = packer_.pack(encoded);
  CompactThrift header;
  header.i32(1, static_cast<std::int32_t>(kind));
  header.i32(2, static_cast<std::int32_t>(encoded.size()));
  header.i32(3, static_cast<std::int32_t>(packed.size()));
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
  out += packed;
}

std::unique_ptr<ColumnChunk> makeColumnChunk(const RowField& field, PagePacker& packer) {
  return field.builtin_id == TEV_TYPE_CHAR ? makeTextChunk(field, packer)
                                           : makeNumberChunk(field, packer);
}

}  // namespace tev::host
