#include "service/lifecycle.h"

#include "base/allocation.h"
#include "base/local_identity.h"
#include "base/service_state.h"
#include "base/status.h"
#include "platform/socket.h"
#include "platform/system.h"
#include "platform/thread.h"
#include "service/address_watcher.h"
#include "service/run_sequence.h"

namespace zvqrn {
namespace {

// Holds the turn of a start or stop.  Not taken on a thread that the holder may have to wait for.
class LifecycleTurn {
 public:
  LifecycleTurn() {
    taken_ = !InForkedProcess() && service.lifecycleTurn != nullptr &&
             !platform::OnLibraryThread() && !InsideStatusCallback() &&
             platform::WaitSemaphore(service.lifecycleTurn, platform::WAIT_WITHOUT_END) ==
                 platform::SYNC_SIGNALLED;
  }
  ~LifecycleTurn() {
    if (taken_) {
      platform::SignalSemaphore(service.lifecycleTurn);
    }
  }
  LifecycleTurn(const LifecycleTurn&) = delete;
  LifecycleTurn& operator=(const LifecycleTurn&) = delete;

  bool Taken() const { return taken_; }

 private:
  bool taken_;
};

void StoreHostValues(const HostValues& host) {
  service.filterCallback = host.filterCallback;
  service.filterContext = host.filterContext;
  service.eventCallback = host.eventCallback;
  service.eventContext = host.eventContext;
  service.statusCallback = host.statusCallback;
  service.statusContext = host.statusContext;
}

// Empties what an earlier run may have left behind; its locks are gone since its stop.
void ResetRun() {
  service.pcName = nullptr;
  service.pcNameLength = 0;
  service.eventPort = 0;
  service.listenerState.store(THREAD_IDLE);
  service.discoveryState.store(THREAD_IDLE);
  service.connectionState.store(THREAD_IDLE);
}

// Reads the computer's name into service.pcName; identityLock is held.
bool TakeComputerName() {
  std::int32_t length = 0;
  if (ReadComputerName(nullptr, &length) != 1) {
    return false;
  }
  std::int32_t size = length + 1;
  OwnedBlock<char> name(NewBytes(size));
  if (!name || ReadComputerName(name.get(), &size) != 1) {
    return false;
  }
  service.pcName = name.release();
  service.pcNameLength = size;
  return true;
}

// Finds out who this PC is.  The lock is made held, so that no export sees half an identity.
PickResult TakeIdentity() {
  if (!CreateServiceLock(&service.identityLock, 0, 1)) {
    return PICK_FAILED;
  }
  const PickResult picked = TakeComputerName() ? PickLocalAddress() : PICK_FAILED;
  ReleaseServiceLock(&service.identityLock);
  return picked;
}

// A start from the first step that needs to be undone: true when the service runs or waits for an
// address; false when it has undone all but what FinishRun does.
bool BringUp() {
  const PickResult picked = TakeIdentity();
  DecideAddressWatching();
  const bool mayWait = picked == PICK_ONLY_LOOPBACK && service.watchEnabled.load() == 1;
  if ((picked != PICK_USABLE && !mayWait) || !CreateServiceLock(&service.listenerStateLock, 1, 1) ||
      !CreateServiceLock(&service.discoveryStateLock, 1, 1)) {
    ForgetIdentity();
    DestroyServiceLock(&service.listenerStateLock);
    return false;
  }
  if (service.watchEnabled.load() == 1) {
    // Known before the watcher runs: what it does with a change depends on it.
    service.waiting.store(picked == PICK_ONLY_LOOPBACK ? 1 : 0);
    StartAddressWatcher();
    if (mayWait && service.watcherStopEvent != nullptr) {
      return true;
    }
  }
  service.waiting.store(0);
  if (!StartThreads() || !MarkRunning()) {
    StopAllThreads(STOP_BY_HOST);
    return false;
  }
  return true;
}

// Of a service that does not run: one that waits for an address has a watcher, or one whose restart
// has failed.
bool Waits() {
  return service.watcherStopEvent != nullptr;
}

// What remains of a run when its threads have been told to end.
void FinishRun() {
  platform::WaitForThreads();
  CloseWatcherEvents();
  EndSocketUse();
  service.ownerProcess.store(0);
}

void EndRun() {
  StopAllThreads(STOP_BY_HOST);
  FinishRun();
}

}  // namespace

std::int32_t StartService(const HostValues& host) {
  if (host.eventCallback == nullptr || host.filterCallback == nullptr ||
      host.statusCallback == nullptr) {
    return 0;
  }
  const LifecycleTurn turn;
  if (!turn.Taken() || IsServiceRunning() != 0) {
    return 0;
  }
  if (Waits()) {
    EndRun();
  }
  service.ownerProcess.store(platform::CurrentProcessId());
  StoreHostValues(host);
  ResetRun();
  // A failure shows later, when the listener gets no socket.
  service.socketsStarted.store(platform::StartSockets() ? 1 : 0);
  platform::PrepareSockets();
  platform::PrepareThreads();
  if (BringUp()) {
    return 1;
  }
  FinishRun();
  return 0;
}

std::int32_t StopService() {
  const LifecycleTurn turn;
  if (!turn.Taken()) {
    return 0;
  }
  // Asked once: a flag that could be read a moment ago may be unreadable now.
  const std::int32_t running = IsServiceRunning();
  if (running == 1 || (running == 0 && Waits())) {
    EndRun();
  }
  return running == 1 ? 1 : 0;
}

}  // namespace zvqrn
