// Counting semaphores and manual-reset events: the two things that threads of the library wait on.
// Any thread may call any function; nothing here depends on which thread made an object.  A closed
// object must not be in use by another thread.
#pragma once

#include <cstdint>

namespace zvqrn::platform {

struct Semaphore;
struct Event;

enum SyncResult : std::int32_t { SYNC_SIGNALLED = 0, SYNC_TIMED_OUT = 1, SYNC_FAILED = 2 };

// A time-out that never ends.
constexpr std::int32_t WAIT_WITHOUT_END = -1;

// Makes a semaphore with `initial` of at most `maximum` counts; gives null when the system refuses.
// The caller closes it.
Semaphore* MakeSemaphore(std::int32_t initial, std::int32_t maximum);
void CloseSemaphore(Semaphore* semaphore);

// Takes one count, waiting for it at most `milliseconds`.
SyncResult WaitSemaphore(Semaphore* semaphore, std::int32_t milliseconds);

// Gives one count back; false when that would exceed the maximum.
bool SignalSemaphore(Semaphore* semaphore);

// Makes a manual-reset event that is not set; gives null when the system refuses.  The caller
// closes it.
Event* MakeEvent();
void CloseEvent(Event* event);

// Sets or resets the event.
void SignalEvent(Event* event);
void ClearEvent(Event* event);

// Waits for the event at most `milliseconds`; leaves it as it is.
SyncResult WaitEvent(Event* event, std::int32_t milliseconds);

enum EitherResult : std::int32_t { EITHER_FIRST = 0, EITHER_SECOND = 1, EITHER_FAILED = 2 };

// Waits without end for one of two events; the first one counts when both are set.
EitherResult WaitEitherEvent(Event* first, Event* second);

}  // namespace zvqrn::platform
