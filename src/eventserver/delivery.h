// Hands a recorded job to the host on a thread of its own, turns the host's verdict into the
// answer, and settles the job.
#pragma once

#include <cstdint>

#include "eventserver/connection_tables.h"

namespace zvqrn {

// Starts the delivery of a job: 1 when its thread runs, or when the service stops and the request
// has therefore been answered STATUS_BUSY without the host; -1 when there is no thread, and then
// the request has been answered STATUS_INTERNAL_FAILURE and its job removed; 0 for no job.  On the
// main connection's thread.
std::int32_t StartDelivery(JobRecord* job);

// The body of an answer with this response code, in the exchange's protocol version: 1 and a
// NUL-terminated block that the caller frees, or 0 and nothing.
std::int32_t BuildResponseBody(std::int32_t code, const char* protocolVersion, char** body,
                               std::int32_t* bodyLength);

// True while a delivery thread of the main connection is at work.  On the main connection's thread.
bool DeliveriesAtWork();

// Waits, without time-out, until no delivery thread of the main connection is at work.  On the
// main connection's thread.
void WaitForDeliveries();

}  // namespace zvqrn
