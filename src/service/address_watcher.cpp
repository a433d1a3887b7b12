#include "service/address_watcher.h"

#include <initializer_list>

#include "base/allocation.h"
#include "base/local_identity.h"
#include "base/service_state.h"
#include "base/status.h"
#include "platform/address_change.h"
#include "platform/sync.h"
#include "platform/system.h"
#include "platform/thread.h"
#include "service/run_sequence.h"

namespace zvqrn {
namespace {

// What fails is tried again, but not in a spin.
constexpr std::int32_t ANOTHER_TRY_PAUSE_MS = 300;

constexpr std::int32_t START_LOOK_MS = 1;

// Starts the service that waited for an address, and tells the host.
bool RestartService() {
  if (!StartThreads()) {
    return false;
  }
  const LockScope scope(&service.runLock);
  if (!scope.Held()) {
    return false;
  }
  ReportStatus(QRN_STATUS_CLASS_NOTICE, QRN_STATUS_RESTART, STATUS_TEXT_RESTART);
  service.waiting.store(0);
  service.serviceRunning.store(1);
  return true;
}

// A pause before another try; false when a stop came, or cannot be waited for.
bool PauseForAnotherTry() {
  return platform::WaitEvent(service.watcherStopEvent, ANOTHER_TRY_PAUSE_MS) ==
         platform::SYNC_TIMED_OUT;
}

PickResult PickAddressUnderLock() {
  const LockScope scope(&service.identityLock);
  return scope.Held() ? PickLocalAddress() : PICK_FAILED;
}

// Takes the address again and acts on it; false when the watcher has nothing left to watch.
bool ActOnChange() {
  PickResult picked = PickAddressUnderLock();
  for (; picked == PICK_UNREADABLE; picked = PickAddressUnderLock()) {
    if (!PauseForAnotherTry()) {
      return false;
    }
  }
  if (picked == PICK_FAILED) {
    return true;
  }
  if (service.waiting.load() == 0) {
    platform::SignalEvent(service.rejoinEvent);
    return true;
  }
  if (RestartService()) {
    return true;
  }
  // The use of the socket library is left to the host's next start or stop: ending it takes the
  // loader lock under Windows, and the host may just be unloading the library, which holds that
  // lock and waits for this thread.
  StopAllThreads(STOP_BY_WATCHER);
  return false;
}

// True when the address has changed since the start took it.
bool AddressHasChanged() {
  AddressCheck check = CheckLocalAddress();
  while (check == ADDRESS_UNKNOWN && PauseForAnotherTry()) {
    check = CheckLocalAddress();
  }
  return check == ADDRESS_DIFFERS;
}

// True for a change, false for the end of watching.
bool WaitForChange(platform::Event* changed) {
  for (;;) {
    switch (platform::WaitEitherEvent(service.watcherStopEvent, changed)) {
      case platform::EITHER_FIRST:
        return false;
      case platform::EITHER_SECOND:
        return true;
      default:
        // A stop must still be heard, and a wait that fails for it too ends the watcher.
        if (!PauseForAnotherTry()) {
          return false;
        }
    }
  }
}

// What a watcher waits with; it owns it.
struct AddressWatch {
  platform::Event* changed;
  platform::AddressNotifier* notifier;
};

void CloseAddressWatch(AddressWatch* watch) {
  if (watch->notifier != nullptr) {
    platform::CloseAddressNotifier(watch->notifier);
  }
  if (watch->changed != nullptr) {
    platform::CloseEvent(watch->changed);
  }
  std::free(watch);
}

using OwnedAddressWatch = Owned<AddressWatch, CloseAddressWatch>;

// Owned by the caller; null when the system refuses any of it.
AddressWatch* OpenAddressWatch() {
  OwnedAddressWatch watch(NewRecord<AddressWatch>());
  if (watch) {
    watch->changed = platform::MakeEvent();
  }
  if (watch && watch->changed != nullptr) {
    watch->notifier = platform::MakeAddressNotifier(watch->changed);
  }
  return watch && watch->notifier != nullptr ? watch.release() : nullptr;
}

// From the first arming on.
void Watch(const AddressWatch& watch) {
  // The address may have changed after the start took it and before the notification was armed.
  bool differs = AddressHasChanged();
  for (bool armed = true; armed && (differs || WaitForChange(watch.changed)); differs = false) {
    // Armed before the address is read, so that a change after the reading is told again.
    armed = platform::ArmAddressNotifier(watch.notifier);
    if (!ActOnChange()) {
      return;
    }
  }
}

// Arms on its own thread, because Windows ends a notification with the thread that asked for it,
// and the host's may be short-lived.  The start waits for the outcome.
void AddressWatcher(void* argument) {
  OwnedAddressWatch watch(static_cast<AddressWatch*>(argument));
  if (!platform::ArmAddressNotifier(watch->notifier)) {
    watch.reset();
    service.watcherState.store(THREAD_FAILED);
    return;
  }
  service.watcherState.store(THREAD_RUNNING);
  Watch(*watch);
  watch.reset();
  service.watchEnabled.store(0);
  service.watcherState.store(THREAD_IDLE);
}

// Starts the watcher's thread and waits until it watches; false when it does not.
bool StartWatching() {
  OwnedAddressWatch watch(OpenAddressWatch());
  if (!watch || platform::StartThread(&AddressWatcher, watch.get(),
                                      platform::STACK_FOR_HOST_CALLBACKS) == 0) {
    return false;
  }
  watch.release();
  while (service.watcherState.load() == THREAD_STARTING) {
    platform::SleepMilliseconds(START_LOOK_MS);
  }
  return service.watcherState.load() != THREAD_FAILED;
}

}  // namespace

void DecideAddressWatching() {
  service.watcherState.store(THREAD_IDLE);
  service.watchEnabled.store(platform::CanWatchAddresses() ? 1 : 0);
}

void StartAddressWatcher() {
  service.watcherStopEvent = platform::MakeEvent();
  service.rejoinEvent = platform::MakeEvent();
  // Written before the thread begins, so that a stop waits for a watcher that has not yet run.
  service.watcherState.store(THREAD_STARTING);
  if (service.watcherStopEvent == nullptr || service.rejoinEvent == nullptr || !StartWatching()) {
    service.watcherState.store(THREAD_IDLE);
    service.watchEnabled.store(0);
    CloseWatcherEvents();
  }
}

void CloseWatcherEvents() {
  for (platform::Event** event : {&service.watcherStopEvent, &service.rejoinEvent}) {
    if (*event != nullptr) {
      platform::CloseEvent(*event);
      *event = nullptr;
    }
  }
}

}  // namespace zvqrn
