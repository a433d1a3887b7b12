// Puts the figures into the rows.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "common/results.h"
#include "report/rows.h"

namespace zvqrn::bench {

// One row as it is shown.
struct Line {
  std::string group;
  std::string what;
  std::string ours;
  std::string peer;
  std::string ratio;
  std::string aim;
  std::string verdict;  // "met", "MISSED", "not measured: ...", or empty without an aim
};

std::vector<Line> FillRows(const Results& results);

std::string PlainTable(const std::vector<Line>& lines);
std::string MarkdownTable(const std::vector<Line>& lines);
nlohmann::ordered_json JsonRows(const Results& results);

}  // namespace zvqrn::bench
