// Discovery's listener: waits on UDP port 2968 for requests that scanners send to the multicast
// group or to this PC, and has each answered on a thread of its own.
#pragma once

namespace zvqrn {

// Starts the listener's thread; false when the system refuses.  The caller then waits with
// WaitForThreadReady(discoveryState) for THREAD_RUNNING (it listens) or THREAD_FAILED (no socket,
// no group, no address).  Told to stop by discoveryState, it ends when every reply has, and says so
// with THREAD_IDLE.
bool StartDiscovery();

}  // namespace zvqrn
