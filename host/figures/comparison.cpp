#include "host/figures/comparison.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace tev::host {

namespace {

// Of the amounts apart from the one at `index`; there is at least one.
double medianOfOthers(std::vector<double> amounts, std::size_t index) {
  amounts.erase(amounts.begin() + static_cast<std::ptrdiff_t>(index));
  const auto middle = amounts.begin() + static_cast<std::ptrdiff_t>(amounts.size() / 2);
  std::ranges::nth_element(amounts, middle);
  return *middle;
}

}  // namespace

bool isPlane(const Series& series) {
  return !series.keys.empty();
}

double Comparison::share(std::size_t plane) const {
  const double sum = std::accumulate(amounts.begin(), amounts.end(), 0.0);
  return sum > 0 ? amounts[plane] / sum : 0;
}

void Comparison::add(const PlaneAmount& plane) {
  kind = plane.kind;
  has_unknown |= plane.has_unknown;
  is_uncertain |= plane.is_uncertain;
  planes.push_back(plane.plane);
  amounts.push_back(plane.amount);
}

void Comparison::finish() {
  if (amounts.empty()) return;
  const auto largest = std::ranges::max_element(amounts);
  worst = static_cast<std::size_t>(largest - amounts.begin());
  const double mean =
      std::accumulate(amounts.begin(), amounts.end(), 0.0) / static_cast<double>(amounts.size());
  imbalance = mean > 0 ? *largest / mean : 1;
  // A count of independent events varies by the root of its mean.
  constexpr double kDeviations = 4;
  constexpr double kShare = 0.1;
  const double chance = kDeviations * std::sqrt(std::max(mean, 1.0));
  const bool is_gauge = kind == FieldKind::gauge;
  is_significant = *largest - mean > (is_gauge ? 0.25 * mean : std::max(chance, kShare * mean));
  // When one plane is below the others, none of the others stands out.
  const double clearly = is_gauge ? 1.5 : 1.25;
  stands_out =
      is_significant && amounts.size() > 1 && *largest > clearly * medianOfOthers(amounts, worst);
}

}  // namespace tev::host
