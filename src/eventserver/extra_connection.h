// Extra connections: scanners that connect while the main connection is taken.  Each gets one
// answer, "busy", to one message; they share nothing with the main connection.
#pragma once

#include <cstdint>

#include "platform/socket.h"

namespace zvqrn {

// Most extra connections at one time: the counts of extraConnectionSlots.
constexpr std::int32_t EXTRA_CONNECTION_LIMIT = 5;

// Longest wait for the first bytes.
constexpr std::int64_t EXTRA_CONNECTION_PATIENCE_MS = 90000;

// Takes an accepted connection over and answers it on a thread of its own; closes it at once when
// every slot is taken or no thread can be had.  False when the listener must stop, because the
// slots are gone.  On the listener's thread.
bool ServeExtraConnection(platform::SocketHandle socket);

// Waits until no extra connection is left and none can use a slot any more.  The connections see
// the stop of the service and end by themselves.  On the listener's thread.
void RetireExtraConnections();

}  // namespace zvqrn
