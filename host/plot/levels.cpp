#include "host/plot/levels.h"

#include <zlib.h>

#include <algorithm>
#include <bit>
#include <cmath>

#include "host/support/errors.h"

namespace tev::host {
namespace {

constexpr std::size_t kCoarsest = 1024;  // buckets

// Columns of numbers in one block.
class Block {
 public:
  explicit Block(std::size_t length) : length_(length) {}

  void add(const std::vector<std::uint32_t>& numbers) {
    for (const unsigned shift : {16U, 8U, 0U})
      for (const std::uint32_t one : numbers)
        bytes_.push_back(static_cast<std::uint8_t>(one >> shift));
  }

  void add(const std::vector<std::uint8_t>& marks) {
    bytes_.insert(bytes_.end(), marks.begin(), marks.end());
  }

  std::size_t length() const { return length_; }
  const std::vector<std::uint8_t>& bytes() const { return bytes_; }

 private:
  std::size_t length_;
  std::vector<std::uint8_t> bytes_;
};

void addRow(Block& block, const PackedField::Row& row, std::size_t begin, std::size_t factor) {
  const std::vector<Bucket>& buckets =
      row.series->fields()[row.track].rowOf(row.series->figures().tracks[row.track]);
  const std::vector<SampleCount>& counts = row.series->counts();
  std::vector<std::uint32_t> first(block.length());
  std::vector<std::uint32_t> second(block.length());
  std::vector<std::uint32_t> mean(block.length());
  for (std::size_t i = 0; i < block.length(); ++i) {
    const std::size_t from = std::min(buckets.size(), (begin + i) * factor);
    const std::size_t to = std::min(buckets.size(), (begin + i + 1) * factor);
    Bucket joined;
    SampleCount count;
    for (std::size_t k = from; k < to; ++k) {
      joined.append(buckets[k]);
      if (k < counts.size()) count.append(counts[k]);
    }
    first[i] = float24(joined.first);
    second[i] = float24(joined.second) ^ first[i];
    const bool is_single = joined.isEmpty() || joined.first == joined.second;
    mean[i] = is_single ? 0
                        : float24(static_cast<float>(row.series->mean(row.track, joined, count))) ^
                              first[i];
  }
  block.add(first);
  block.add(second);
  block.add(mean);
}

void addUnknown(std::vector<std::uint8_t>& marks, const PackedField::Row& row, std::size_t begin,
                std::size_t factor) {
  const std::vector<std::uint32_t>& unknown = row.series->fields()[row.track].unknown;
  for (auto one = std::ranges::lower_bound(unknown, begin * factor); one != unknown.end(); ++one) {
    const std::size_t at = *one / factor - begin;
    if (at >= marks.size()) break;
    marks[at] |= kUnknownStep;
  }
}

void append32(std::vector<std::uint8_t>& bytes, std::size_t number) {
  for (const unsigned shift : {0U, 8U, 16U, 24U})
    bytes.push_back(static_cast<std::uint8_t>(number >> shift));
}

Block deviceMarks(const std::vector<DeviceMarks>& marks, std::size_t begin, std::size_t length,
                  std::size_t factor) {
  std::vector<std::uint8_t> joined(length);
  std::vector<std::size_t> gaps(length);
  for (std::size_t k = begin * factor; k < std::min(marks.size(), (begin + length) * factor); ++k) {
    joined[k / factor - begin] |= marks[k].marks;
    gaps[k / factor - begin] += marks[k].gap;
  }
  std::vector<std::uint8_t> parts;
  for (const std::size_t gap : gaps)
    parts.push_back(static_cast<std::uint8_t>((gap + factor - 1) / factor));
  Block block(length);
  block.add(joined);
  block.add(parts);
  return block;
}

Block fieldBlock(const PackedField& field, std::size_t begin, std::size_t length,
                 std::size_t factor) {
  Block block(length);
  std::vector<std::uint8_t> marks(length);
  for (const PackedField::Row& row : field.rows) {
    addRow(block, row, begin, factor);
    if (row.series->figures().tracks[row.track].counts()) addUnknown(marks, row, begin, factor);
  }
  block.add(marks);
  return block;
}

}  // namespace

std::size_t levelsFor(std::size_t buckets) {
  std::size_t levels = 1;
  for (; buckets > kCoarsest; buckets = (buckets + kLevelFactor - 1) / kLevelFactor) ++levels;
  return levels;
}

std::vector<std::uint8_t> packLevel(const Reduction& reduction, const std::string& device,
                                    const std::vector<PackedField>& fields, std::size_t factor) {
  const std::size_t length = (reduction.buckets() + factor - 1) / factor;
  std::vector<std::vector<std::uint8_t>> blocks;
  const auto forEachSegment = [length](const auto& make) {
    for (std::size_t begin = 0; begin < length; begin += kSegment)
      make(begin, std::min(kSegment, length - begin));
  };
  forEachSegment([&](std::size_t begin, std::size_t count) {
    blocks.push_back(compress(deviceMarks(reduction.marks(device), begin, count, factor).bytes()));
  });
  for (const PackedField& field : fields)
    forEachSegment([&](std::size_t begin, std::size_t count) {
      blocks.push_back(compress(fieldBlock(field, begin, count, factor).bytes()));
    });
  std::vector<std::uint8_t> bytes;
  append32(bytes, blocks.size());
  for (const auto& block : blocks) append32(bytes, block.size());
  for (const auto& block : blocks) bytes.insert(bytes.end(), block.begin(), block.end());
  return bytes;
}

std::uint32_t float24(float number) {
  if (std::isnan(number)) return 0xFFFFFF;
  constexpr std::uint32_t kHalf = 0x80;
  return (std::bit_cast<std::uint32_t>(number) + kHalf) >> 8;
}

std::vector<std::uint8_t> compress(std::span<const std::uint8_t> bytes) {
  auto length = compressBound(bytes.size());
  std::vector<std::uint8_t> packed(length);
  if (compress2(packed.data(), &length, bytes.data(), bytes.size(), 6) != Z_OK)
    throw RunError("the page cannot be compressed");
  packed.resize(length);
  return packed;
}

}  // namespace tev::host
