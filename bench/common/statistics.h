// What is told of a series of measured values.
#pragma once

#include <vector>

namespace zvqrn::bench {

// The value below which `percent` of the values lie; the series must not be empty.
double Percentile(std::vector<double> values, double percent);

double Median(const std::vector<double>& values);

}  // namespace zvqrn::bench
