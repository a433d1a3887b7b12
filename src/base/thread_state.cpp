#include "base/thread_state.h"

namespace zvqrn {

void WriteThreadState(ThreadState* state, ServiceLock* lock, ThreadStateValue value) {
  const LockScope scope(lock);
  state->store(value);
}

bool StartReportingThread(platform::ThreadProcedure procedure, platform::StackKind stack,
                          ThreadState* state, ServiceLock* lock) {
  // Written before the thread begins, so that THREAD_IDLE from now on means that it has ended.
  WriteThreadState(state, lock, THREAD_STARTING);
  if (platform::StartThread(procedure, nullptr, stack) != 0) {
    return true;
  }
  WriteThreadState(state, lock, THREAD_IDLE);
  return false;
}

void ReportSetUp(ThreadState* state, bool succeeded) {
  std::int32_t starting = THREAD_STARTING;
  const ThreadStateValue outcome = succeeded ? THREAD_RUNNING : THREAD_FAILED;
  if (!state->compare_exchange_strong(starting, outcome) && !succeeded) {
    state->store(THREAD_IDLE);
  }
}

std::int32_t WaitForThreadReady(ThreadState* state, ServiceLock* lock) {
  for (;;) {
    {
      const LockScope scope(lock);
      if (!scope.Held()) {
        return -1;
      }
      const std::int32_t value = state->load();
      if (value != THREAD_STARTING) {
        return value;
      }
    }
    platform::SleepMilliseconds(1);
  }
}

bool TellThreadToStop(ThreadState* state) {
  std::int32_t value = state->load();
  while ((value == THREAD_STARTING || value == THREAD_RUNNING) &&
         !state->compare_exchange_weak(value, THREAD_STOP_REQUESTED)) {
  }
  return value != THREAD_IDLE && value != THREAD_FAILED;
}

bool RequestThreadStop(ThreadState* state, ServiceLock* lock) {
  const LockScope scope(lock);
  const bool runs = TellThreadToStop(state);
  if (!runs) {
    state->store(THREAD_IDLE);
  }
  return runs;
}

}  // namespace zvqrn
