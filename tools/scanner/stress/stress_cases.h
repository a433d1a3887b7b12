// The messages with which the stress command tries limits, and the answers that they must get.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "scanner/stress/stress.h"

namespace zvqrn::scanner {

struct StressCase {
  std::string uid;       // empty: a fresh one
  std::string statuses;  // which x-status may be the answer; empty: the request is dropped
  std::function<std::string(const Attack& attack, const std::string& uid)> make;
};

// Uids, heads, lengths and versions at and past their limits.
std::vector<StressCase> LimitCases();

// Documents whose values are at and past theirs.
std::vector<StressCase> ValueCases();

// Searches for PCs: one that is answered, and what can be made wrong about it.
std::vector<std::string> DiscoveryCases(std::uint16_t xid);

}  // namespace zvqrn::scanner
