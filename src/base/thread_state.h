// ThreadState: the word by which a worker thread tells its life to the thread that starts and stops
// it.  It is written under the lock beside it and may be read without.
#pragma once

#include <atomic>
#include <cstdint>

#include "base/service_lock.h"

namespace zvqrn {

enum ThreadStateValue : std::int32_t {
  THREAD_IDLE = 0,            // not running
  THREAD_STARTING = 1,        // setting up
  THREAD_RUNNING = 2,         // serving
  THREAD_STOP_REQUESTED = 3,  // to finish, clean up and write THREAD_IDLE
  THREAD_FAILED = 4           // ended without serving
};

using ThreadState = std::atomic<std::int32_t>;

// Writes the word under its lock.  A lock that cannot be had does not keep the word from being
// written: whoever waits for a thread must hear of its end.
void WriteThreadState(ThreadState* state, ServiceLock* lock, ThreadStateValue value);

// Waits until the word is THREAD_RUNNING or THREAD_FAILED and gives it; -1 when the lock cannot be
// acquired.  Looks every millisecond, without time-out.
std::int32_t WaitForThreadReady(ThreadState* state, ServiceLock* lock);

// Asks a thread to stop: true when it runs and must be waited for.  A thread that is idle or has
// failed is set idle.
bool RequestThreadStop(ThreadState* state, ServiceLock* lock);

}  // namespace zvqrn
