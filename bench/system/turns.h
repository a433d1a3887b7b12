// Ours and the peers take turns, so that what else the machine does hits all of them alike.  The
// time is cut into slices: what is told is what ours is to the peer's in each.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "common/results.h"
#include "system/child.h"

namespace zvqrn::bench {

struct Contender {
  std::string name;                  // the last part of its figures' names
  std::function<double()> exchange;  // gives the nanoseconds that it took
  const Child* host = nullptr;       // whose processor time is told too
};

// A slice has so many turns of each contender, with so many exchanges a turn; one that takes longer
// than `seconds` has fewer.
struct Effort {
  std::size_t slices;
  std::size_t turns;
  std::size_t exchanges;
  double seconds;
  double pause = 0;  // seconds after all have had a turn
};

// Adds a value of each slice to the series NAME.median.CONTENDER (nanoseconds), NAME.p99.CONTENDER,
// NAME.rate.CONTENDER (exchanges a second) and NAME.cpu.CONTENDER (nanoseconds an exchange).
void TakeTurns(const std::vector<Contender>& contenders, const Effort& effort,
               const std::string& name, Results* results);

}  // namespace zvqrn::bench
