// Puts the figures into the rows.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "common/results.h"
#include "common/statistics.h"
#include "report/rows.h"

namespace zvqrn::bench {

// What is known of a row: medians over the slices, and where the slices lie.
struct Judged {
  std::string group;
  Row row;
  std::optional<double> ours;
  std::optional<double> peer;
  std::optional<Spread> ratio;   // of ours to the peer's, slice by slice
  std::optional<Spread> judged;  // what the aim is for: the ratio, or ours; none: one value only
  std::string verdict;           // "met", "MISSED", "not measured: ...", or empty without an aim
};

// An aim is missed when the whole spread misses it.
std::vector<Judged> JudgeRows(const Results& results);

// How a row's aim is written.
std::string AimText(const Row& row);

std::string PlainTable(const std::vector<Judged>& rows);
std::string MarkdownTable(const std::vector<Judged>& rows);

}  // namespace zvqrn::bench
