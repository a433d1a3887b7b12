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

}  // namespace zvqrn::bench
