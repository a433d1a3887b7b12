// Reads what a scanner sends on the main connection and decides about each message: dropped,
// refused, or accepted as a job and handed to a delivery thread.  On the main connection's thread.
#pragma once

#include <cstdint>

#include "platform/socket.h"

namespace zvqrn {

enum ProcessResult : std::int32_t {
  PROCESS_HANDLED = 1,  // a whole message arrived, at least one
  PROCESS_ENDED = 0,    // the scanner has closed the connection, or reading failed
  PROCESS_IDLE = -2     // nothing arrived, or nothing but pieces and what is no message
};

// Longest silence inside a head.  Three retransmissions in a row of a piece that got lost take 7 s;
// a scanner that is silent for longer has given its message up, and begins anew.
constexpr std::int64_t HEAD_SILENCE_LIMIT_MS = 10000;

// Reads once from the connection and handles every message that is then whole.  Bytes that begin
// the next message are kept in ServiceState for the next call.
ProcessResult ProcessIncoming(platform::SocketHandle socket);

// Forgets bytes kept by ProcessIncoming: at the begin and the end of a connection.
void DropIncomingLeftover();

// Forgets them when nothing has followed for HEAD_SILENCE_LIMIT_MS, or the next good message would
// be taken for their end.  Called when nothing waits to be read: the time that this thread spends
// elsewhere is no silence of the scanner's.
void AgeIncomingLeftover();

// Handles one message; false when the bytes hold no whole and well-formed head.
bool DispatchMessage(platform::SocketHandle socket, const char* bytes, std::int32_t length);

}  // namespace zvqrn
