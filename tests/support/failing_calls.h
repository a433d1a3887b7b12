// Calls of the system, and waits at the seam, that a test makes fail one at a time: replaced at
// link time (ld's --wrap) in failure_tests only.  Those waits and clocks of the library that only
// pass time are shortened there too.
#pragma once

#include <atomic>
#include <cstdint>

namespace zvqrn::test {

// What a failing call gives: an errno, or one of these.
constexpr int REFUSED = 0;         // null, false or the wait's own failure
constexpr int ONE_BYTE_ONLY = -1;  // a transfer that goes through in part
constexpr std::int32_t EVERY_CALL = 0;

// Which call fails: the `number`th (or EVERY_CALL) of the function from now on, and how.
void ArmFailure(const char* function, int error, std::int32_t number);
void PauseFailure();
void ResumeFailure();

// How many calls have failed since the arming.
std::int32_t FailedCalls();

// True on a thread whose calls are left alone.  The library's threads never set it.
extern thread_local bool isSpared;

// Lets the calling thread's calls fail, and its waits be short, while the library is called.
template <typename Action>
auto AsLibrary(Action action) {
  isSpared = false;
  auto result = action();
  isSpared = true;
  return result;
}

}  // namespace zvqrn::test
