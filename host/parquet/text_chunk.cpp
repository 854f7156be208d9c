#include "host/parquet/text_chunk.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <unordered_map>
#include <utility>
#include <vector>

#include "host/support/text.h"

namespace tev::host {
namespace {

constexpr std::size_t kMaxDictionaryBytes = std::size_t{1} << 20;
constexpr std::size_t kMaxExtreme = 64;      // bytes of a text in the metadata
constexpr std::size_t kMaxIndexes = 16'384;  // of a page

void appendNumber(std::string& out, std::uint32_t value, std::size_t bytes) {
  for (std::size_t i = 0; i < bytes; ++i) out += static_cast<char>(value >> 8 * i);
}

void appendVarint(std::string& out, std::size_t value) {
  for (; value > 0x7F; value >>= 7) out += static_cast<char>(value | 0x80);
  out += static_cast<char>(value);
}

void appendText(std::string& out, std::string_view text) {
  appendNumber(out, static_cast<std::uint32_t>(text.size()), sizeof(std::uint32_t));
  out += text;
}

class TextChunk final : public ColumnChunk {
 public:
  TextChunk(const RowField& field, PagePacker& packer)
      : ColumnChunk(field, formatOf(field.builtin_id), packer) {}

  void add(const Rows& rows) override {
    for (std::size_t i = 0; i < rows.count; ++i) {
      const auto* const text =
          reinterpret_cast<const char*>(rows.first + i * rows.size + field().offset);
      add({text, strnlen(text, field().size)});
    }
  }

 private:
  void add(std::string_view text) {
    if (is_plain_) {
      appendText(page_, asUtf8(text));
      ++plain_values_;
      if (page_.size() >= kPageBytes) endPage();
      return;
    }
    // Consecutive rows often have the same text.
    if (indexes_.empty() || text != last_) {
      last_ = text;
      last_index_ = indexOf(last_);
    }
    indexes_.push_back(last_index_);
    if (indexes_.size() == kMaxIndexes) endPage();
    if (dictionary_.values.size() > kMaxDictionaryBytes) {
      endPage();
      is_plain_ = true;
    }
  }

  std::uint32_t indexOf(const std::string& text) {
    const auto [place, is_new] = index_of_.try_emplace(text, 0);
    if (is_new) {
      place->second = static_cast<std::uint32_t>(dictionary_.size++);
      const std::string stored = asUtf8(text);
      appendText(dictionary_.values, stored);
      if (dictionary_.size == 1) min_ = max_ = stored;
      min_ = std::min(min_, stored);
      max_ = std::max(max_, stored);
    }
    return place->second;
  }

  void endPage() {
    if (is_plain_) {
      ColumnChunk::endPage(page_, ParquetEncoding::plain, std::exchange(plain_values_, 0));
    } else {
      ColumnChunk::endPage(runs(), ParquetEncoding::dictionary, indexes_.size());
      indexes_.clear();
    }
  }

  // The indexes as runs of equal ones, behind their width in bits.
  std::string runs() const {
    const auto bits = static_cast<std::size_t>(std::bit_width(dictionary_.size - 1));
    std::string out(1, static_cast<char>(bits));
    for (auto run = indexes_.begin(); run != indexes_.end();) {
      const auto end =
          std::find_if(run, indexes_.end(), [&](std::uint32_t one) { return one != *run; });
      appendVarint(out, static_cast<std::size_t>(end - run) << 1);
      appendNumber(out, *run, (bits + 7) / 8);
      run = end;
    }
    return out;
  }

  void endChunk(ChunkSummary& summary) override {
    endPage();
    if (!is_plain_ && min_.size() <= kMaxExtreme && max_.size() <= kMaxExtreme) {
      summary.min = min_;
      summary.max = max_;
    }
    index_of_.clear();
    is_plain_ = false;
  }

  Dictionary takeDictionary() override { return std::exchange(dictionary_, {}); }

  std::unordered_map<std::string, std::uint32_t> index_of_;  // in the dictionary
  Dictionary dictionary_;
  std::string min_;
  std::string max_;
  std::string last_;  // the text before this one
  std::uint32_t last_index_ = 0;
  std::vector<std::uint32_t> indexes_;  // of the open page
  bool is_plain_ = false;               // the dictionary is full
  std::size_t plain_values_ = 0;        // of the open page
};

}  // namespace

std::unique_ptr<ColumnChunk> makeTextChunk(const RowField& field, PagePacker& packer) {
  return std::make_unique<TextChunk>(field, packer);
}

}  // namespace tev::host
