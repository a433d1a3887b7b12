// The host's data on its way to the scanner that made a request.
#pragma once

#include <cstdint>

#include "zvqrn/zvqrn.h"

namespace zvqrn {

// A new uid for a message of the library's own: the local date and time to the second, 14 digits,
// and the milliseconds without leading zeros; 15 to 17 characters in a block of UID_SIZE bytes that
// the caller frees.  Two in the same millisecond are equal.  Null when memory runs out.
char* MakeUid();

// Queues `data` as a request to the scanner whose open request `request` names, and writes the
// uid under which it goes into `request`.  1 = queued, or dropped for want of memory; 0 = there is
// no such request, no main connection, or no memory for the uid.
std::int32_t SendHostData(EventHeader* request, const void* data, std::int32_t length);

}  // namespace zvqrn
