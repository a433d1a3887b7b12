#include "base/thread_state.h"

#include "platform/thread.h"

namespace zvqrn {

void WriteThreadState(ThreadState* state, ServiceLock* lock, ThreadStateValue value) {
  const LockScope scope(lock);
  state->store(value);
}

std::int32_t WaitForThreadReady(ThreadState* state, ServiceLock* lock) {
  for (;;) {
    {
      const LockScope scope(lock);
      if (!scope.Held()) {
        return -1;
      }
      const std::int32_t value = state->load();
      if (value == THREAD_RUNNING || value == THREAD_FAILED) {
        return value;
      }
    }
    platform::SleepMilliseconds(1);
  }
}

bool RequestThreadStop(ThreadState* state, ServiceLock* lock) {
  const LockScope scope(lock);
  if (!scope.Held()) {
    return false;
  }
  const std::int32_t value = state->load();
  const bool runs = value != THREAD_IDLE && value != THREAD_FAILED;
  state->store(runs ? THREAD_STOP_REQUESTED : THREAD_IDLE);
  return runs;
}

}  // namespace zvqrn
