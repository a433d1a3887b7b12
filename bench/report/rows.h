// The rows of the benchmarks' table: what is measured, beside what, and what it should be.
#pragma once

#include <vector>

namespace zvqrn::bench {

enum class Unit { NANOSECONDS, PER_SECOND, BYTES, KILOBYTES, COUNT, PERCENT };

enum class Aim { NONE, RATIO_AT_MOST, RATIO_AT_LEAST, VALUE_BELOW };

struct Row {
  const char* what;
  const char* ours;  // name of the figure
  Unit unit;
  const char* peer = nullptr;  // name of the peer's figure; null: there is none
  const char* peerName = "";
  Aim aim = Aim::NONE;
  double limit = 0;
};

struct RowGroup {
  const char* title;
  std::vector<Row> rows;
};

const std::vector<RowGroup>& AllRows();

}  // namespace zvqrn::bench
