// What the library prepares when it is loaded, and how it leaves when it is unloaded or the process
// ends.  Called by the platform's entry point, under Windows with the loader lock held.

#include <cstdlib>

#include "base/driver_name.h"
#include "base/service_state.h"
#include "platform/entry.h"
#include "platform/sync.h"
#include "platform/thread.h"

namespace zvqrn {
namespace {

// Tells every thread to stop, without a lock: whoever holds one may be gone.
void TellThreadsToStop() {
  service.unloading.store(1);
  if (service.listenerState.load() != THREAD_IDLE) {
    service.listenerState.store(THREAD_STOP_REQUESTED);
  }
}

// What a service that was running leaves behind once its threads are gone.  The use of the socket
// library is not ended here: the system does not allow that while it unloads a library.
void ReleaseRun() {
  DestroyServiceLock(&service.identityLock);
  DestroyServiceLock(&service.listenerStateLock);
  std::free(service.pcName);
  service.pcName = nullptr;
}

}  // namespace

bool platform::OnLibraryLoad() {
  if (!CreateServiceLock(&service.runLock, 1, 1)) {
    return false;
  }
  service.lifecycleTurn = platform::MakeSemaphore(1, 1);
  if (service.lifecycleTurn == nullptr) {
    DestroyServiceLock(&service.runLock);
    return false;
  }
  LoadUtilityLibrary();
  service.serviceRunning.store(0);
  return true;
}

void platform::OnLibraryUnload(bool processEnds) {
  TellThreadsToStop();
  if (processEnds) {
    return;
  }
  platform::RetireThreads();
  ReleaseRun();
  DestroyServiceLock(&service.runLock);
  if (service.lifecycleTurn != nullptr) {
    platform::CloseSemaphore(service.lifecycleTurn);
    service.lifecycleTurn = nullptr;
  }
  UnloadUtilityLibrary();
}

}  // namespace zvqrn
