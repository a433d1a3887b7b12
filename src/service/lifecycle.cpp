#include "service/lifecycle.h"

#include <cstdlib>

#include "base/allocation.h"
#include "base/local_identity.h"
#include "base/service_state.h"
#include "base/status.h"
#include "eventserver/listener.h"
#include "platform/socket.h"
#include "platform/thread.h"

namespace zvqrn {
namespace {

constexpr std::int32_t STOP_POLL_MS = 300;

// Holds the turn of a start or stop.  Not taken on a thread that the holder may have to wait for.
class LifecycleTurn {
 public:
  LifecycleTurn() {
    taken_ = service.lifecycleTurn != nullptr && !platform::OnLibraryThread() &&
             !InsideStatusCallback() &&
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

// The lock goes first: nobody can be reading the name afterwards.
void ForgetIdentity() {
  DestroyServiceLock(&service.identityLock);
  std::free(service.pcName);
  service.pcName = nullptr;
}

// The stop sequence: asks every thread to end, waits for them, and destroys what the start made.
void StopAllThreads() {
  const bool waitForListener =
      RequestThreadStop(&service.listenerState, &service.listenerStateLock);
  do {
    platform::SleepMilliseconds(STOP_POLL_MS);
  } while (waitForListener && service.listenerState.load() != THREAD_IDLE);
  ForgetIdentity();
  DestroyServiceLock(&service.listenerStateLock);
  const LockScope scope(&service.runLock);
  if (scope.Held()) {
    service.serviceRunning.store(0);
  }
}

// Starts the threads of the service, one after the other, each serving before the next begins.
bool StartThreads() {
  return StartListener() &&
         WaitForThreadReady(&service.listenerState, &service.listenerStateLock) == THREAD_RUNNING;
}

bool SetRunning() {
  const LockScope scope(&service.runLock);
  if (scope.Held()) {
    service.serviceRunning.store(1);
  }
  return scope.Held();
}

// A start from the first step that needs to be undone; false when it has been undone.
bool BringUp() {
  if (TakeIdentity() != PICK_USABLE) {
    ForgetIdentity();
    return false;
  }
  if (!CreateServiceLock(&service.listenerStateLock, 1, 1)) {
    ForgetIdentity();
    return false;
  }
  if (!StartThreads() || !SetRunning()) {
    StopAllThreads();
    return false;
  }
  return true;
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
  StoreHostValues(host);
  ResetRun();
  // A failure shows later, when the listener gets no socket.
  const bool socketsStarted = platform::StartSockets();
  if (BringUp()) {
    return 1;
  }
  platform::WaitForThreads();
  if (socketsStarted) {
    platform::EndSockets();
  }
  return 0;
}

std::int32_t StopService() {
  const LifecycleTurn turn;
  if (!turn.Taken() || IsServiceRunning() != 1) {
    return 0;
  }
  StopAllThreads();
  platform::WaitForThreads();
  platform::EndSockets();
  return 1;
}

}  // namespace zvqrn
