// The event server's listener: owns the listening socket on TCP port 2968 and hands each connection
// to a thread of its own, the first as the main connection, others as extra ones.
#pragma once

#include <cstdint>

namespace zvqrn {

constexpr std::uint16_t EVENT_PORT = 2968;
constexpr std::int32_t LISTEN_BACKLOG = 1;

// Starts the listener's thread; false when the system refuses.  The caller then waits with
// WaitForThreadReady(listenerState) for THREAD_RUNNING (it listens) or THREAD_FAILED (no socket,
// or the port is taken).  Told to stop by listenerState, it ends when every connection has, and
// says so with THREAD_IDLE.
bool StartListener();

}  // namespace zvqrn
