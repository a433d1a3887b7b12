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

// A wait that fails is tried again, but not in a spin.
constexpr std::int32_t FAILED_WAIT_PAUSE_MS = 300;

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

// Takes the address again and acts on it; false when the watcher has nothing left to watch.
bool ActOnChange() {
  {
    const LockScope scope(&service.identityLock);
    if (!scope.Held() || PickLocalAddress() == PICK_FAILED) {
      return true;
    }
  }
  if (service.waiting.load() == 0) {
    platform::SignalEvent(service.rejoinEvent);
    return true;
  }
  if (RestartService()) {
    return true;
  }
  StopAllThreads(STOP_BY_WATCHER);
  EndSocketUse();
  return false;
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
        if (platform::WaitEvent(service.watcherStopEvent, FAILED_WAIT_PAUSE_MS) !=
            platform::SYNC_TIMED_OUT) {
          return false;
        }
    }
  }
}

// What a watcher waits with; it owns it.
struct AddressWatch {
  platform::Event* changed;
  platform::AddressNotifier* notifier;
  bool armed;
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

// Made and armed on the host's thread, because the first use of the notification makes Windows
// load parts of itself: a thread of the library must not do that while the host unloads it.  Null
// when memory runs out.
AddressWatch* OpenAddressWatch() {
  OwnedAddressWatch watch(NewRecord<AddressWatch>());
  if (watch) {
    watch->changed = platform::MakeEvent();
  }
  if (watch && watch->changed != nullptr) {
    watch->notifier = platform::MakeAddressNotifier(watch->changed);
  }
  if (watch && watch->notifier != nullptr) {
    watch->armed = platform::ArmAddressNotifier(watch->notifier);
  }
  return watch.release();
}

void Watch(AddressWatch* watch) {
  // The address may have changed after the start took it and before the notification was armed.
  bool differs = watch->armed && LocalAddressDiffers();
  while (watch->armed && (differs || WaitForChange(watch->changed))) {
    differs = false;
    // Armed before the address is read, so that a change after the reading is told again.
    watch->armed = platform::ArmAddressNotifier(watch->notifier);
    if (!ActOnChange()) {
      return;
    }
  }
}

void AddressWatcher(void* argument) {
  if (const OwnedAddressWatch watch{static_cast<AddressWatch*>(argument)}) {
    Watch(watch.get());
  }
  service.watchEnabled.store(0);
  service.watcherState.store(THREAD_IDLE);
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
  service.watcherState.store(THREAD_RUNNING);
  OwnedAddressWatch watch(OpenAddressWatch());
  if (service.watcherStopEvent == nullptr || service.rejoinEvent == nullptr ||
      platform::StartThread(&AddressWatcher, watch.get(), platform::STACK_FOR_HOST_CALLBACKS) ==
          0) {
    service.watcherState.store(THREAD_IDLE);
    service.watchEnabled.store(0);
    CloseWatcherEvents();
    return;
  }
  watch.release();
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
