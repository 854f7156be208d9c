// The levels of detail of a page. Each level has buckets four times as long as the next finer one.
// A level is cut into segments, so that the page unpacks only what it shows.
//
// A packed level, as page.js reads it: the number of blocks and the length of each (32 bits, little
// endian), then the blocks, each compressed (zlib). The first row of blocks has the marks of the
// device: a byte of marks a bucket, then a byte a bucket with the part in which samples are
// missing. The others have a field each, a block a segment: for each of its series the columns
// `first`, `second` and `mean`, then a byte of marks a bucket. Numbers have the upper 24 bits of a
// 32-bit float; all bits are set for "none". The numbers of a column lie in three planes of bytes,
// upper bytes first. `second` and `mean` are the differences (exclusive or) to `first`.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "host/plot/reduction.h"

namespace tev::host {

constexpr std::size_t kSegment = 4096;  // buckets
constexpr unsigned kLevelFactor = 4;

// A field of a device in the page's order.
struct PackedField {
  struct Row {
    const SeriesRows* series;
    std::size_t track;
  };
  std::vector<Row> rows;  // the series that move
};

// The number of levels: the coarsest has at most a thousand buckets.
std::size_t levelsFor(std::size_t buckets);

// Packs a level of one device; `factor` buckets of the reduction become one.
std::vector<std::uint8_t> packLevel(const Reduction& reduction, const std::string& device,
                                    const std::vector<PackedField>& fields, std::size_t factor);

// The upper 24 bits of a float, rounded. All bits are set for "not a number".
std::uint32_t float24(float number);

// Throws RunError when the library fails.
std::vector<std::uint8_t> compress(std::span<const std::uint8_t> bytes);

}  // namespace tev::host
