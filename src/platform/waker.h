// A waker ends the wait of the one thread that waits for its socket and for other threads' news.
#pragma once

#include <cstdint>

#include "platform/socket.h"

namespace zvqrn::platform {

struct Waker;

// Null when the system refuses.
Waker* MakeWaker();
void CloseWaker(Waker* waker);

// Ends the wait that is running or the next one.  Calls that come before the waiter has noticed
// one count as that one.  Never waits; any thread.
void Wake(Waker* waker);

enum WakerWait : std::int32_t {
  WAKER_SOCKET_READY = 2,  // as SOCKET_READY; a call of Wake may have been noticed as well
  WAKER_WOKEN = 1,
  WAKER_TIMED_OUT = 0,
  WAKER_FAILED = -1
};

// WaitReadable that a call of Wake ends too; without a waker only the socket does.  One thread at
// a time.
WakerWait WaitReadableOrWoken(SocketHandle socket, Waker* waker, std::int32_t milliseconds);

}  // namespace zvqrn::platform
