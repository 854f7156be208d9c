#include "host/parquet/number_chunk.h"

#include <algorithm>
#include <cmath>
#include <concepts>
#include <cstring>
#include <limits>
#include <utility>

#include "tev/schema.h"

namespace tev::host {
namespace {

template <class T>
std::string plain(T value) {
  std::string bytes(sizeof value, '\0');
  std::memcpy(bytes.data(), &value, sizeof value);
  return bytes;
}

// The smallest and the largest value of a chunk.
template <class T>
class Extremes {
 public:
  void add(T value) {
    if constexpr (std::floating_point<T>) has_nan_ |= std::isnan(value);
    min_ = std::min(min_, value);
    max_ = std::max(max_, value);
  }

  void store(ChunkSummary& summary) const {
    if (has_nan_) return;  // their place in the order is not defined
    T min = min_;
    T max = max_;
    if constexpr (std::floating_point<T>) {  // readers may take either zero for the smaller one
      if (min == 0) min = -T{0};
      if (max == 0) max = T{0};
    }
    summary.min = plain(min);
    summary.max = plain(max);
  }

 private:
  T min_ = std::numeric_limits<T>::has_infinity ? std::numeric_limits<T>::infinity()
                                                : std::numeric_limits<T>::max();
  T max_ = std::numeric_limits<T>::has_infinity ? -std::numeric_limits<T>::infinity()
                                                : std::numeric_limits<T>::lowest();
  bool has_nan_ = false;
};

// `Value` is the type in the row; `Stored` is the type in the file. Both have the same sign.
template <class Value, class Stored>
class NumberChunk final : public ColumnChunk {
 public:
  NumberChunk(const RowField& field, PagePacker& packer)
      : ColumnChunk(field, formatOf(field.builtin_id), packer) {}

  void add(const Rows& rows) override {
    const std::size_t begin = page_.size();
    page_.resize(begin + rows.count * sizeof(Stored));
    const std::uint8_t* from = rows.first + field().offset;
    char* to = page_.data() + begin;
    Extremes<Stored> extremes = extremes_;
    for (std::size_t i = 0; i < rows.count; ++i, from += rows.size, to += sizeof(Stored)) {
      Value value;
      std::memcpy(&value, from, sizeof value);
      const auto stored = static_cast<Stored>(value);  // NOLINT(bugprone-signed-char-misuse)
      std::memcpy(to, &stored, sizeof stored);
      extremes.add(stored);
    }
    extremes_ = extremes;
    if (page_.size() >= kPageBytes) endPage();
  }

 private:
  void endPage() {
    ColumnChunk::endPage(page_, ParquetEncoding::plain, page_.size() / sizeof(Stored));
  }

  void endChunk(ChunkSummary& summary) override {
    endPage();
    std::exchange(extremes_, {}).store(summary);
  }

  Extremes<Stored> extremes_;
};

// One bit a value, from the lowest bit on.
class BooleanChunk final : public ColumnChunk {
 public:
  BooleanChunk(const RowField& field, PagePacker& packer)
      : ColumnChunk(field, formatOf(field.builtin_id), packer) {}

  void add(const Rows& rows) override {
    for (std::size_t i = 0; i < rows.count; ++i) {
      const bool value = rows.first[i * rows.size + field().offset] != 0;  // the byte may have any
      if (values_ % 8 == 0) page_ += '\0';
      page_.back() = static_cast<char>(page_.back() | value << values_ % 8);
      ++values_;
      extremes_.add(value);
    }
    if (page_.size() >= kPageBytes) endPage();
  }

 private:
  void endPage() { ColumnChunk::endPage(page_, ParquetEncoding::plain, std::exchange(values_, 0)); }

  void endChunk(ChunkSummary& summary) override {
    endPage();
    std::exchange(extremes_, {}).store(summary);
  }

  std::size_t values_ = 0;
  Extremes<std::uint8_t> extremes_;
};

template <class Value, class Stored>
std::unique_ptr<ColumnChunk> make(const RowField& field, PagePacker& packer) {
  return std::make_unique<NumberChunk<Value, Stored>>(field, packer);
}

}  // namespace

std::unique_ptr<ColumnChunk> makeNumberChunk(const RowField& field, PagePacker& packer) {
  const ColumnFormat format = formatOf(field.builtin_id);
  if (format.type == ParquetType::boolean) return std::make_unique<BooleanChunk>(field, packer);
  if (format.type == ParquetType::single_float) return make<float, float>(field, packer);
  if (format.type == ParquetType::double_float) return make<double, double>(field, packer);
  const bool is_signed = format.meaning == ParquetMeaning::signed_integer;
  switch (field.size) {
    case 1:
      return is_signed ? make<std::int8_t, std::int32_t>(field, packer)
                       : make<std::uint8_t, std::uint32_t>(field, packer);
    case 2:
      return is_signed ? make<std::int16_t, std::int32_t>(field, packer)
                       : make<std::uint16_t, std::uint32_t>(field, packer);
    case 4:
      return is_signed ? make<std::int32_t, std::int32_t>(field, packer)
                       : make<std::uint32_t, std::uint32_t>(field, packer);
    default:
      return is_signed ? make<std::int64_t, std::int64_t>(field, packer)
                       : make<std::uint64_t, std::uint64_t>(field, packer);
  }
}

}  // namespace tev::host
