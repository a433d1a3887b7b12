// What the library prepares when it is loaded, and how it leaves when it is unloaded or the process
// ends.  Called by the platform's entry point, under Windows with the loader lock held.

#include <initializer_list>

#include "base/driver_name.h"
#include "base/service_state.h"
#include "base/thread_state.h"
#include "platform/clock.h"
#include "platform/entry.h"
#include "platform/sync.h"
#include "platform/thread.h"
#include "service/address_watcher.h"
#include "service/run_sequence.h"

namespace zvqrn {
namespace {

// The unload of a service that serves takes this long, and longer only while threads still work.
constexpr std::int64_t UNLOAD_MS = 2000;

// Tells every thread to stop, without a lock: whoever holds one may be gone.  True when the service
// was serving.
bool TellThreadsToStop() {
  bool serving = false;
  service.unloading.store(1);
  for (ThreadState* state : {&service.listenerState, &service.discoveryState}) {
    serving = TellThreadToStop(state) || serving;
  }
  if (service.watcherStopEvent != nullptr) {
    platform::SignalEvent(service.watcherStopEvent);
  }
  return serving;
}

// What a service that was running leaves behind once its threads are gone.  The use of the socket
// library is not ended here: the system does not allow that while it unloads a library.
void ReleaseRun() {
  ForgetIdentity();
  DestroyServiceLock(&service.listenerStateLock);
  DestroyServiceLock(&service.discoveryStateLock);
  CloseWatcherEvents();
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
  // The threads are the other process's, and a lock that one of them held stays taken here.
  if (InForkedProcess()) {
    return;
  }
  const std::int64_t begin = platform::MonotonicMilliseconds();
  const bool serving = TellThreadsToStop();
  if (processEnds) {
    return;
  }
  platform::RetireThreads();
  const std::int64_t left = begin + UNLOAD_MS - platform::MonotonicMilliseconds();
  if (serving && left > 0) {
    platform::SleepMilliseconds(static_cast<std::int32_t>(left));
  }
  ReleaseRun();
  DestroyServiceLock(&service.runLock);
  if (service.lifecycleTurn != nullptr) {
    platform::CloseSemaphore(service.lifecycleTurn);
    service.lifecycleTurn = nullptr;
  }
  UnloadUtilityLibrary();
}

}  // namespace zvqrn
