// Calls of the system that a test makes fail: replaced at link time (ld's --wrap) in failure_tests
// only.  The waits of the library's threads are shortened there too.
#pragma once

#include <atomic>
#include <cstdint>

namespace zvqrn::test {

// Beside errno values: a transfer goes through in part.
constexpr int ONE_BYTE_ONLY = -1;

// Which call is to fail and how, while `isArmed`: the `number`th of the function since the counts
// were reset.  Changed while nothing is armed.
struct FailingCall {
  const char* function;
  int error;
  std::int32_t number;
};
extern FailingCall failing;
extern std::atomic<bool> isArmed;
extern std::atomic<std::int32_t> callCount;
extern std::atomic<std::int32_t> failureCount;

// True on a thread of the test's own, whose calls are left alone.
extern thread_local bool isSpared;

}  // namespace zvqrn::test
