// What is told of a series of measured values.
#pragma once

#include <vector>

namespace zvqrn::bench {

// The value below which `percent` of the values lie; the series must not be empty.
double Percentile(std::vector<double> values, double percent);

double Median(const std::vector<double>& values);

// Where a series lies: its median, and its 10th and 90th percentile, which for nine values or fewer
// are the least and the greatest.
struct Spread {
  double low;
  double median;
  double high;
};
Spread SpreadOf(const std::vector<double>& values);

// What ours is to the peer's, slice by slice; both must have as many slices.
std::vector<double> Ratios(const std::vector<double>& ours, const std::vector<double>& peers);

}  // namespace zvqrn::bench
