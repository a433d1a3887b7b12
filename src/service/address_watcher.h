// The watcher of address changes: a thread that waits for the system's word that an address of this
// PC has changed, and then has discovery join its group anew or, when the service waits for its
// first usable address, starts the service's threads.
#pragma once

namespace zvqrn {

// Sets service.watchEnabled: whether the system can tell of address changes.
void DecideAddressWatching();

// Makes the events and starts the watcher's thread; clears service.watchEnabled, and leaves no
// events, when one of them cannot be had or the system does not tell of changes.  The thread ends
// when watcherStopEvent is set, when the system's notification fails, or when a restart fails; it
// then leaves watcherState at THREAD_IDLE and watchEnabled at 0.
void StartAddressWatcher();

// Closes the events, once the watcher and discovery have ended.
void CloseWatcherEvents();

}  // namespace zvqrn
