// Sends what has been queued for a scanner.  On the main connection's thread.
#pragma once

#include <cstdint>

#include "platform/socket.h"

namespace zvqrn {

// A send that transfers nothing is tried again after a pause; the third in one flush is a failure.
constexpr std::int32_t EMPTY_SEND_PAUSE_MS = 1000;
constexpr std::int32_t EMPTY_SEND_LIMIT = 3;

// A scanner that takes no byte for this long has gone.
constexpr std::int64_t SEND_STALL_LIMIT_MS = 300000;

// How long sending may go on after the service was told to stop.
constexpr std::int64_t STOP_SEND_LIMIT_MS = 2000;

enum FlushResult : std::int32_t {
  FLUSH_SENT = 1,    // every message that was queued has been sent
  FLUSH_FAILED = 0,  // one could not be sent; those behind it are still queued
  FLUSH_EMPTY = -1   // nothing was queued
};

// Sends the messages that are in the queue when it is called, oldest first, and removes each, sent
// or not.  sendQueueLock is held only to take one off: while bytes wait for a slow scanner,
// the host and the delivery threads go on queueing.
FlushResult FlushSendQueue(platform::SocketHandle socket);

}  // namespace zvqrn
