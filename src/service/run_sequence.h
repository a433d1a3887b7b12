// The steps that a start, a stop and the address watcher share: bringing the service's threads up
// and taking them down.  The host's starts and stops call these in turns; the watcher calls them
// while the service waits for an address, and every stop ends the watcher before it does anything
// else.
#pragma once

namespace zvqrn {

// Starts the event server and discovery, one after the other, each serving before the next begins.
// False undoes nothing: the stop sequence follows.
bool StartThreads();

// Sets serviceRunning; false when runLock cannot be acquired.
bool MarkRunning();

// Who runs the stop sequence: the watcher cannot wait for itself.
enum StopCaller { STOP_BY_HOST, STOP_BY_WATCHER };

// The stop sequence: asks every thread to end, waits for them without time-out, and destroys what
// the start made but the watcher's events.
void StopAllThreads(StopCaller caller);

// Destroys identityLock and frees the PC's name.
void ForgetIdentity();

// Ends the use of the socket library that a start began; once for each start.
void EndSocketUse();

}  // namespace zvqrn
