// The main connection: the one scanner that is served in full.  Its thread reads and handles the
// scanner's messages, sends what is queued for it as soon as it is, and keeps the connection tables
// while it lives.
#pragma once

#include <cstdint>

#include "platform/socket.h"

namespace zvqrn {

// A main connection on which no whole message is received and nothing is sent for this long is
// closed.
constexpr std::int64_t CONNECTION_IDLE_LIMIT_MS = 300000;

// Starts the thread that serves an accepted connection and from then on owns its socket.  The
// listener has set connectionState to THREAD_STARTING and connectionSocket; the thread empties the
// second when it sees the connection's end, and sets the first back to THREAD_IDLE as it ends.
// False when no thread can be had: the socket is still the caller's.
bool StartMainConnection(platform::SocketHandle socket);

}  // namespace zvqrn
