// The comparison of a device's planes.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "host/events/series.h"
#include "host/figures/field_kind.h"

namespace tev::host {

// The amount of one plane: the sum of a counter's steps, or the mean of a gauge.
struct PlaneAmount {
  const Series* plane;
  FieldKind kind;
  double amount;
  bool has_unknown;
  bool is_uncertain;
};

// One field of a device, compared over the device's planes: over its series that have a longer key
// than the device.
struct Comparison {
  std::string field;  // the column's name
  FieldKind kind = FieldKind::counter;
  bool has_unknown = false;   // a plane has unknown steps
  bool is_uncertain = false;  // a plane's counter may go round more than once
  std::vector<const Series*> planes;
  std::vector<double> amounts;  // by plane: the sum of a counter, the mean of a gauge
  std::size_t worst = 0;        // index of the plane with the largest amount
  double imbalance = 1;         // the largest amount over the mean of all
  bool is_significant = false;  // the difference is larger than chance explains
  bool stands_out = false;  // the worst plane does: it is clearly above the median of the others

  void add(const PlaneAmount& plane);

  // Compares the amounts and fills in the rest.
  void finish();

  // The share of each plane in the sum; 0 when nothing was counted.
  double share(std::size_t plane) const;
};

bool isPlane(const Series& series);

}  // namespace tev::host
