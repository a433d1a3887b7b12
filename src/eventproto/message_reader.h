// Reads the scanners' messages from a connected socket: one whole message at a time, with short
// waits, keeping the bytes beyond it for the next call.  Called by the main connection's thread.
#pragma once

#include <cstdint>

#include "platform/socket.h"

namespace zvqrn {

// Longest wait for bytes, so that the caller can look around in between.
constexpr std::int32_t RECEIVE_TIMEOUT_MS = 300;

// A head of this many bytes without its end is given up; also what the first receive asks for, and
// the step in which a buffer for leftovers grows.
constexpr std::int32_t HEAD_LIMIT = 4096;

// Most bytes of one message that are kept in memory: hundreds of times the longest document of the
// protocol, and little enough for an allocator that keeps what is freed.  A longer message is
// handed back in pieces, of which the first holds the head.
constexpr std::int32_t MESSAGE_LIMIT = 1024 * 1024;

// Longest time that one call goes on reading a body that arrives in drops; then it gives back what
// has come, as after a wait that ran out.
constexpr std::int64_t BODY_TIME_LIMIT_MS = 30000;

enum ReadResult : std::int32_t {
  READ_DONE = 1,
  READ_TIMED_OUT = -2,  // the last wait ran out
  READ_CLOSED = -1,     // the peer has closed its side
  READ_FAILED = 0       // an error, bad arguments, or no memory to begin with
};

// Receives at most `length` bytes, waiting at most RECEIVE_TIMEOUT_MS for the first; their count
// goes to `received`, 0 unless the result is READ_DONE.
ReadResult ReceiveWithTimeout(platform::SocketHandle socket, char* buffer, std::int32_t length,
                              std::int32_t* received);

// Reads one message.
//
// `message` is what the last call gave (it is freed) or null; `leftover` are bytes that were
// received before and come first.  Both are owned by the caller, before and after.
//
// READ_DONE and READ_TIMED_OUT hand back a message and a leftover, either of which may be empty:
//  - a whole message, and the bytes that came after it;
//  - a message of length 0, and as leftover all bytes in hand, which hold no complete and
//    well-formed head;
//  - with READ_TIMED_OUT, a message whose body stops short of its Content-Length.
// READ_CLOSED and READ_FAILED hand back nothing.
//
// One call receives at most once for a head.  A stop of the service ends the reading of a body as
// a wait that ran out does.
ReadResult ReadMessage(platform::SocketHandle socket, char** message, std::int32_t* messageLength,
                       char** leftover, std::int32_t* leftoverLength);

}  // namespace zvqrn
