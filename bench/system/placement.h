// Where the two ends of an exchange run.  What an exchange costs is decided by that: each placement
// is pinned, so that the system's scheduler has no say.
#pragma once

#include <sched.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace zvqrn::bench {

constexpr std::size_t ANY_CORE = SIZE_MAX;

struct Placement {
  std::string name;  // in the names of figures
  std::size_t scannerCore;
  std::size_t hostCore;  // the peers' too
};

// The names of both placements.
constexpr char ONE_CORE[] = "one_core";
constexpr char TWO_CORES[] = "two_cores";

// Both placements, or the first alone on a machine with one core; a core's threads count as one.
std::vector<Placement> AllPlacements();

// Keeps the calling thread, with the threads and programs that it starts meanwhile, on one core.
class Pinned {
 public:
  explicit Pinned(std::size_t core);
  ~Pinned();
  Pinned(const Pinned&) = delete;
  Pinned& operator=(const Pinned&) = delete;

 private:
  cpu_set_t before_{};
};

}  // namespace zvqrn::bench
