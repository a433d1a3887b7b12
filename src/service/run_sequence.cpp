#include "service/run_sequence.h"

#include <cstdlib>

#include "base/service_state.h"
#include "discovery/listener.h"
#include "eventserver/listener.h"
#include "platform/socket.h"
#include "platform/sync.h"
#include "platform/thread.h"

namespace zvqrn {
namespace {

constexpr std::int32_t STOP_POLL_MS = 300;
constexpr std::int32_t WATCHER_POLL_MS = 10;

// The watcher ends first, because it may just be starting the threads that are to be ended.
void EndWatcher() {
  if (service.watcherStopEvent == nullptr) {
    return;
  }
  platform::SignalEvent(service.watcherStopEvent);
  while (service.watcherState.load() != THREAD_IDLE) {
    platform::SleepMilliseconds(WATCHER_POLL_MS);
  }
}

}  // namespace

bool StartThreads() {
  return StartListener() &&
         WaitForThreadReady(&service.listenerState, &service.listenerStateLock) == THREAD_RUNNING &&
         StartDiscovery() &&
         WaitForThreadReady(&service.discoveryState, &service.discoveryStateLock) == THREAD_RUNNING;
}

bool MarkRunning() {
  const LockScope scope(&service.runLock);
  if (scope.Held()) {
    service.serviceRunning.store(1);
  }
  return scope.Held();
}

void StopAllThreads(StopCaller caller) {
  if (caller == STOP_BY_HOST) {
    EndWatcher();
  }
  const bool waitForDiscovery =
      RequestThreadStop(&service.discoveryState, &service.discoveryStateLock);
  const bool waitForListener =
      RequestThreadStop(&service.listenerState, &service.listenerStateLock);
  do {
    platform::SleepMilliseconds(STOP_POLL_MS);
  } while ((waitForDiscovery && service.discoveryState.load() != THREAD_IDLE) ||
           (waitForListener && service.listenerState.load() != THREAD_IDLE));
  // The name goes after its lock: nobody can be reading it then.
  ForgetIdentity();
  DestroyServiceLock(&service.listenerStateLock);
  DestroyServiceLock(&service.discoveryStateLock);
  const LockScope scope(&service.runLock);
  service.serviceRunning.store(0);
}

void ForgetIdentity() {
  DestroyServiceLock(&service.identityLock);
  std::free(service.pcName);
  service.pcName = nullptr;
}

void EndSocketUse() {
  if (service.socketsStarted.exchange(0) != 0) {
    platform::EndSockets();
  }
}

}  // namespace zvqrn
