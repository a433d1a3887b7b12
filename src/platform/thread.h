// Threads of the library.  The platform keeps count of those it started, so that a stop or an
// unload can wait until the last of them has left the library's code.
#pragma once

#include <cstdint>

namespace zvqrn::platform {

using ThreadProcedure = void (*)(void* argument);

// Whose code runs on the thread, and so how much address space its stack reserves: the library's
// own code needs little, a host's callback (and the utility library) gets what the host's own
// threads get.  Under POSIX also which signals it blocks: those of the host's thread that called
// PrepareThreads where the host's code runs, otherwise all but its own faults.
enum StackKind : std::int32_t { STACK_FOR_LIBRARY = 0, STACK_FOR_HOST_CALLBACKS = 1 };

// Notes what the threads to come take over from the host: called on a thread of the host's while no
// thread of the library runs.
void PrepareThreads();

// Starts a thread; gives its id, or 0 when the system refuses.  The thread ends when `procedure`
// returns.
std::uintptr_t StartThread(ThreadProcedure procedure, void* argument, StackKind stack);

// True on a thread that StartThread made.
bool OnLibraryThread();

// Waits until no thread that StartThread made is left in the library's code.  The caller sees to
// it that the threads end.  Not on a thread of the library.
void WaitForThreads();

// The unload's form of WaitForThreads: also keeps threads that were started and have not yet run
// from ever entering the library's code; their procedures may be run on the calling thread instead,
// and see the stop that the caller has announced.  Safe where the system's loader lock is held.  No
// thread can be started afterwards.
void RetireThreads();

// The id of the calling thread; never 0.
std::uintptr_t CurrentThreadId();

void SleepMilliseconds(std::int32_t milliseconds);

// Lets another thread that is ready to run have the processor; does not sleep.
void YieldToOthers();

}  // namespace zvqrn::platform
