// The outgoing side of the event protocol: a message in the shape of HTTP/1.0 (RFC 1945, sections
// 4, 5 and 6), built line by line.  Header lines have a space before the colon.  One thread uses a
// message at a time; nothing is shared between messages.
#pragma once

#include <cstdint>

#include "base/allocation.h"
#include "eventproto/outgoing_message.h"

namespace zvqrn {

// One message under construction; it owns its three buffers.
struct EventMessage {
  std::int32_t startLineLength;  // the start line's CR LF included
  std::int32_t headerLength;     // header lines written so far
  std::int32_t headerCapacity;   // bytes allocated for them
  std::int32_t bodyLength;
  char* startLine;  // with its CR LF and a NUL
  char* headers;    // the lines one after the other, each with its CR LF; no NUL at the end
  char* body;       // a copy, or null
};

enum WriteResult : std::int32_t {
  WRITE_DONE = 1,
  WRITE_SKIPPED = 0,        // AddHeader: the name or the value is empty
  WRITE_BAD_ARGUMENT = -1,  // a null, empty or contradictory argument
  WRITE_FAILED = -2         // out of memory, or a size limit
};

// Makes a message whose start line is the three texts, none empty, with single spaces between.
// The caller frees it with FreeMessage.
WriteResult CreateMessage(const char* first, const char* second, const char* third,
                          EventMessage** message);

// Appends one header line; nothing when the name or the value is empty.
WriteResult AddHeader(EventMessage* message, const char* name, const char* value);

// Replaces the body by a copy of `length` bytes; null and 0 remove it.
WriteResult SetBody(EventMessage* message, const void* data, std::int32_t length);

// The bytes that SerializeMessage writes; -1 for a null message.
std::int32_t MessageSize(const EventMessage* message);

// Writes the message into `out`; WRITE_FAILED when `size` is too small for it.
WriteResult SerializeMessage(const EventMessage* message, char* out, std::int32_t size);

// 1, or -1 for null.
std::int32_t FreeMessage(EventMessage* message);

// The bytes of an outgoing message as they go over the wire: 1 and a block of exactly `size` bytes
// that the caller frees, or 0 and nothing.
std::int32_t BuildMessageBytes(const OutgoingMessage* outgoing, char** bytes, std::int32_t* size);

}  // namespace zvqrn
