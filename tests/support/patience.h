// How long tests wait: long for what must come, short for what must not.
#pragma once

#include <cstdint>

#include "platform/clock.h"
#include "platform/thread.h"

namespace zvqrn::test {

// For what must come.  Only a fault waits it out, so it suffices for the slowest machine, and for
// one that stood still for a minute, as virtual ones do.
constexpr std::int32_t PATIENCE_MS = 120000;

// Waits until `condition` holds; false when it does not in time.
template <typename Condition>
bool Eventually(Condition condition, std::int32_t milliseconds = PATIENCE_MS) {
  const std::int64_t deadline = platform::MonotonicMilliseconds() + milliseconds;
  bool holds = condition();
  while (!holds && platform::MonotonicMilliseconds() < deadline) {
    platform::SleepMilliseconds(2);
    holds = condition();
  }
  return holds;
}

}  // namespace zvqrn::test
