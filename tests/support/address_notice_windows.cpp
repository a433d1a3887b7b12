// The two calls that tell of address changes, in place of the system's: Wine never tells.

#include "common/windows_network.h"
#include "support/replaced_calls.h"

namespace {

std::atomic<HANDLE> pendingEvent{nullptr};

}  // namespace

extern "C" DWORD WINAPI NotifyAddrChange(HANDLE* /*handle*/, OVERLAPPED* overlapped) {
  pendingEvent = overlapped->hEvent;
  zvqrn::test::askingThread = GetCurrentThreadId();
  return ERROR_IO_PENDING;
}

extern "C" BOOL WINAPI CancelIPChangeNotify(OVERLAPPED* overlapped) {
  pendingEvent = nullptr;
  const BOOL set = SetEvent(overlapped->hEvent);
  return zvqrn::test::completesInstead ? FALSE : set;
}

void zvqrn::test::TellOfAddressChange() {
  if (pendingEvent.load() != nullptr) {
    SetEvent(pendingEvent);
  }
}
