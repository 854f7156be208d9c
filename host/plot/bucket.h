// What is kept of the samples of a short span of time.
#pragma once

#include <cmath>
#include <cstddef>
#include <limits>
#include <utility>
#include <vector>

namespace tev::host {

struct Bucket {
  static constexpr float kNone = std::numeric_limits<float>::quiet_NaN();

  // The smallest and the largest value, in the order of their times. NaN: a value does not exist.
  float first = kNone;
  float second = kNone;
  float sum = 0;  // of the increases of a counter, or of the values of a gauge

  bool isEmpty() const { return std::isnan(first); }

  void add(float value) {
    if (isEmpty()) {
      first = second = value;
    } else if (value < first && value < second) {
      first = std::fmax(first, second);
      second = value;
    } else if (value > first && value > second) {
      first = std::fmin(first, second);
      second = value;
    }
  }

  // Takes over what a later bucket has.
  void append(const Bucket& later) {
    sum += later.sum;
    if (later.isEmpty()) return;
    add(later.first);
    add(later.second);
  }
};

// Pairs of neighbours become one. `append` adds the second of a pair to the first.
template <class Element, class Append>
void halveRow(std::vector<Element>& row, Append append) {
  for (std::size_t i = 0; i < row.size(); i += 2) {
    Element joined = row[i];
    if (i + 1 < row.size()) append(joined, row[i + 1]);
    row[i / 2] = std::move(joined);
  }
  row.resize((row.size() + 1) / 2);
}

// The element at the index; the row grows when it is too short. Rows are long, so that little
// memory is reserved for more.
template <class Element>
Element& elementAt(std::vector<Element>& row, std::size_t index) {
  if (index >= row.capacity()) row.reserve(index + index / 8 + 16);
  if (index >= row.size()) row.resize(index + 1);
  return row[index];
}

}  // namespace tev::host
