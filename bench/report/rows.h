// The rows of the benchmarks' table: what is measured, beside what, and what it should be.
#pragma once

#include <string>
#include <vector>

namespace zvqrn::bench {

enum class Unit { NANOSECONDS, PER_SECOND, BYTES, KILOBYTES, COUNT, PERCENT };

// An aim for the ratio to the peer's, or for our value alone.
enum class Aim { NONE, RATIO_AT_MOST, RATIO_AT_LEAST, AT_MOST, AT_LEAST, BELOW };

struct Row {
  std::string what;
  std::string ours;  // name of the series
  Unit unit;
  std::string peer;  // name of the peer's series; empty: there is none
  std::string peerName;
  Aim aim = Aim::NONE;
  double limit = 0;
};

struct RowGroup {
  std::string title;
  std::vector<Row> rows;
};

std::vector<RowGroup> AllRows();

}  // namespace zvqrn::bench
