// ThreadState: the word by which a worker thread tells its life to the thread that starts and stops
// it.  It is written under the lock beside it and may be read without.
#pragma once

#include <atomic>
#include <cstdint>

#include "base/service_lock.h"
#include "platform/thread.h"

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

// Starts a thread of the library that reports its life in this word, which is THREAD_STARTING from
// here on; false, and THREAD_IDLE, when the system refuses.
bool StartReportingThread(platform::ThreadProcedure procedure, platform::StackKind stack,
                          ThreadState* state, ServiceLock* lock);

// Waits until the word is no longer THREAD_STARTING and gives it: THREAD_RUNNING, THREAD_FAILED, or
// whatever a thread that has already been told to end has come to; -1 when the lock cannot be
// acquired.  Looks every millisecond, without time-out.
std::int32_t WaitForThreadReady(ThreadState* state, ServiceLock* lock);

// The outcome of a thread's set-up.  A stop that came meanwhile stays; who asked for it waits for
// THREAD_IDLE, also when the set-up failed.
void ReportSetUp(ThreadState* state, bool succeeded);

// Asks a thread to stop without taking the lock: true when it runs.  The word of one that has ended
// stays as it is, also when it ends at this moment: nobody would answer a request that comes later.
bool TellThreadToStop(ThreadState* state);

// The same under the lock: true when it runs and must be waited for.  A thread that is idle or has
// failed is set idle.  As in WriteThreadState the word does not depend on the lock: a thread that
// never heard of the stop would be waited for without end.
bool RequestThreadStop(ThreadState* state, ServiceLock* lock);

}  // namespace zvqrn
