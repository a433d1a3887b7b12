#include "platform/address_change.h"

#include <cstdlib>

#include "platform/windows/windows_headers.h"
// After the header above.
#include <iphlpapi.h>

namespace zvqrn::platform {

// The system writes into `pending` and sets its event when an address changes, whenever that may
// be; both are kept until it cannot do so any more.
struct AddressNotifier {
  OVERLAPPED pending;  // its event is a handle of our own to the caller's event
  bool isPending;
};

namespace {

// How long a cancelled notification may take to come back.
constexpr DWORD CANCEL_WAIT_MS = 1000;

// True when the system has told of a change, or has given the notification back: it touches the
// record no more.
bool HasComeBack(const AddressNotifier* notifier, DWORD milliseconds) {
  return WaitForSingleObject(notifier->pending.hEvent, milliseconds) == WAIT_OBJECT_0;
}

// Ends a pending notification; false when that cannot be done.  One that completes meanwhile cannot
// be cancelled any more, and has come back then.
bool Cancel(AddressNotifier* notifier) {
  return HasComeBack(notifier, 0) ||
         HasComeBack(notifier,
                     CancelIPChangeNotify(&notifier->pending) != FALSE ? CANCEL_WAIT_MS : 0);
}

}  // namespace

AddressNotifier* MakeAddressNotifier(Event* event) {
  auto* notifier = static_cast<AddressNotifier*>(std::calloc(1, sizeof(AddressNotifier)));
  if (notifier == nullptr) {
    return nullptr;
  }
  const HANDLE self = GetCurrentProcess();
  if (DuplicateHandle(self, reinterpret_cast<HANDLE>(event), self, &notifier->pending.hEvent, 0,
                      FALSE, DUPLICATE_SAME_ACCESS) == FALSE) {
    std::free(notifier);
    return nullptr;
  }
  // There is nothing to cancel yet: this is for the first use, which makes the system load parts
  // of itself, and must not come when a thread of the library ends while the host unloads it.  (The
  // first arming does the same on the watcher's thread, while the start waits for it.)
  CancelIPChangeNotify(&notifier->pending);
  return notifier;
}

bool ArmAddressNotifier(AddressNotifier* notifier) {
  if (notifier->isPending && !HasComeBack(notifier, 0)) {
    return true;
  }
  ResetEvent(notifier->pending.hEvent);
  HANDLE handle = nullptr;
  notifier->isPending = NotifyAddrChange(&handle, &notifier->pending) == ERROR_IO_PENDING;
  return notifier->isPending;
}

void CloseAddressNotifier(AddressNotifier* notifier) {
  // A notification that cannot be cancelled may still be written: its record and its event are
  // then left to the process, some forty bytes and a handle for each stop.
  if (notifier->isPending && !Cancel(notifier)) {
    return;
  }
  CloseHandle(notifier->pending.hEvent);
  std::free(notifier);
}

}  // namespace zvqrn::platform
