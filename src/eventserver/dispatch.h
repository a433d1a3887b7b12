// Reads what a scanner sends on the main connection and decides about each message: dropped,
// refused, or accepted as a job and handed to a delivery thread.  On the main connection's thread.
#pragma once

#include <cstdint>

#include "platform/socket.h"

namespace zvqrn {

enum ProcessResult : std::int32_t {
  PROCESS_HANDLED = 1,  // something arrived and was handled or dropped
  PROCESS_ENDED = 0,    // the scanner has closed the connection, or reading failed
  PROCESS_IDLE = -2     // nothing arrived, or only a part of a message
};

// Reads once from the connection and handles every message that is then whole.  Bytes that begin
// the next message are kept in ServiceState for the next call.
ProcessResult ProcessIncoming(platform::SocketHandle socket);

// Forgets bytes kept by ProcessIncoming: at the begin and the end of a connection.
void DropIncomingLeftover();

// Handles one message.
void DispatchMessage(platform::SocketHandle socket, const char* bytes, std::int32_t length);

}  // namespace zvqrn
