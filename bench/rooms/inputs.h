// What the benchmarks of the rooms share.
#pragma once

#include <stdexcept>

namespace zvqrn::bench {

// A benchmark of work that fails would tell nothing.
inline void Require(bool done) {
  if (!done) {
    throw std::runtime_error("a benchmark's work was not done");
  }
}

}  // namespace zvqrn::bench
