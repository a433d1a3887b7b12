#include "common/statistics.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace zvqrn::bench {

double Percentile(std::vector<double> values, double percent) {
  if (values.empty()) {
    throw std::runtime_error("a series without values");
  }
  const auto rank =
      static_cast<std::size_t>(std::ceil(percent / 100 * static_cast<double>(values.size())));
  const auto nth = values.begin() + static_cast<std::ptrdiff_t>(rank > 0 ? rank - 1 : 0);
  std::nth_element(values.begin(), nth, values.end());
  return *nth;
}

double Median(const std::vector<double>& values) {
  return Percentile(values, 50);
}

Spread SpreadOf(const std::vector<double>& values) {
  return {Percentile(values, 10), Median(values), Percentile(values, 90)};
}

std::vector<double> Ratios(const std::vector<double>& ours, const std::vector<double>& peers) {
  if (ours.size() != peers.size()) {
    throw std::runtime_error("two series did not take turns");
  }
  std::vector<double> ratios(ours.size());
  std::transform(ours.begin(), ours.end(), peers.begin(), ratios.begin(),
                 [](double own, double peer) { return own / peer; });
  return ratios;
}

}  // namespace zvqrn::bench
