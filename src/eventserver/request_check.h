// The check of the protocol headers that every request on the main connection passes before
// anything else happens with it.  Runs on the main connection's thread.
#pragma once

#include <cstdint>

#include "eventproto/message_head.h"
#include "eventproto/protocol.h"
#include "zvqrn/zvqrn.h"

namespace zvqrn {

enum CheckResult : std::int32_t {
  CHECK_ACCEPTED = 1,  // status is STATUS_ACCEPTED or STATUS_ACCEPTED_MINOR
  CHECK_REFUSED = -1,  // status says why
  CHECK_FAILED = 0     // an internal failure: no answer
};

// What the check finds beside the header's fields.
struct CheckedRequest {
  char status[STATUS_SIZE];
  char parentUid[UID_SIZE];    // of an END that passed the parent check
  std::int32_t contentLength;  // as announced
  const char* bodyStart;       // in the received data; not owned
};

// Judges a parsed request and fills in its header's exchange type, subevent and version (the
// version as received, cut to its field; empty when refused) and `checked`.  The first fault in the
// order version, subevent, parent, body decides the refusal.
CheckResult CheckRequestHeaders(const ParsedMessage* parsed, EventHeader* header,
                                CheckedRequest* checked);

}  // namespace zvqrn
