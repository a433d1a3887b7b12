#include "platform/sync.h"

#include "platform/windows/windows_headers.h"

namespace zvqrn::platform {
namespace {

// A semaphore or event is the system's handle itself.
HANDLE HandleOf(Semaphore* semaphore) {
  return reinterpret_cast<HANDLE>(semaphore);
}
HANDLE HandleOf(Event* event) {
  return reinterpret_cast<HANDLE>(event);
}

SyncResult WaitHandle(HANDLE handle, std::int32_t milliseconds) {
  const DWORD timeout =
      milliseconds == WAIT_WITHOUT_END ? INFINITE : static_cast<DWORD>(milliseconds);
  switch (WaitForSingleObject(handle, timeout)) {
    case WAIT_OBJECT_0:
      return SYNC_SIGNALLED;
    case WAIT_TIMEOUT:
      return SYNC_TIMED_OUT;
    default:
      return SYNC_FAILED;
  }
}

}  // namespace

Semaphore* MakeSemaphore(std::int32_t initial, std::int32_t maximum) {
  return reinterpret_cast<Semaphore*>(CreateSemaphoreA(nullptr, initial, maximum, nullptr));
}

void CloseSemaphore(Semaphore* semaphore) {
  CloseHandle(HandleOf(semaphore));
}

SyncResult WaitSemaphore(Semaphore* semaphore, std::int32_t milliseconds) {
  return WaitHandle(HandleOf(semaphore), milliseconds);
}

bool SignalSemaphore(Semaphore* semaphore) {
  return ReleaseSemaphore(HandleOf(semaphore), 1, nullptr) != FALSE;
}

Event* MakeEvent() {
  return reinterpret_cast<Event*>(CreateEventA(nullptr, TRUE, FALSE, nullptr));
}

void CloseEvent(Event* event) {
  CloseHandle(HandleOf(event));
}

void SignalEvent(Event* event) {
  SetEvent(HandleOf(event));
}

void ClearEvent(Event* event) {
  ResetEvent(HandleOf(event));
}

SyncResult WaitEvent(Event* event, std::int32_t milliseconds) {
  return WaitHandle(HandleOf(event), milliseconds);
}

EitherResult WaitEitherEvent(Event* first, Event* second) {
  const HANDLE handles[] = {HandleOf(first), HandleOf(second)};
  switch (WaitForMultipleObjects(2, handles, FALSE, INFINITE)) {
    case WAIT_OBJECT_0:
      return EITHER_FIRST;
    case WAIT_OBJECT_0 + 1:
      return EITHER_SECOND;
    default:
      return EITHER_FAILED;
  }
}

}  // namespace zvqrn::platform
