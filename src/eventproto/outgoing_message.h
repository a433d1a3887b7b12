// OutgoingMessage: an answer to a scanner's message, or a request that carries the host's data,
// waiting to be written to its connection.  Owned by the send queue, or by the thread of an extra
// connection; every field is written before the record is shared and only read afterwards.
#pragma once

#include <cstdint>

#include "base/allocation.h"
#include "eventproto/protocol.h"
#include "platform/socket.h"
#include "zvqrn/zvqrn.h"

namespace zvqrn {

struct OutgoingMessage {
  platform::SocketHandle socket;  // the connection that it belongs to; not owned
  EventHeader header;             // a copy: uid, version and, for answers, subevent
  char* body;                     // owned copy, a NUL after it; null when there is none
  std::int32_t bodyLength;
  char status[STATUS_SIZE];  // the x-status of an answer
  char parentUid[UID_SIZE];  // x-parent-uid; empty when there is none
  std::int32_t isAnswer;     // 1: an answer; 0: a request sent for the host
};

// What a message is made from; nothing in it is owned.  `parentUid` may be null for none.
struct OutgoingContent {
  const EventHeader* header;
  const void* body;
  std::int32_t bodyLength;
  const char* status;
  const char* parentUid;
  std::int32_t isAnswer;
};

// Makes a message with copies of the content.  Null when the header or the status is null, when
// body and length contradict each other, or when memory runs out.
OutgoingMessage* MakeOutgoingMessage(platform::SocketHandle socket, const OutgoingContent& content);

void ReleaseOutgoingMessage(OutgoingMessage* message);

using OwnedOutgoingMessage = Owned<OutgoingMessage, ReleaseOutgoingMessage>;

// An answer without body: the usual refusal.
OutgoingContent AnswerWithoutBody(const EventHeader* header, const char* status,
                                  const char* parentUid);

}  // namespace zvqrn
