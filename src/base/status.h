// What the service tells the host through StatusCallback.
#pragma once

#include <cstdint>

namespace zvqrn {

constexpr char STATUS_TEXT_NO_NETWORK[] = "There is no network interface card which can be used.";
constexpr char STATUS_TEXT_RESTART[] = "Service restart.";

// Calls the host's StatusCallback with a copy of the message (at most 63 bytes of it) and gives its
// result; 0, and no call, when the message or the callback is null.  The caller holds identityLock
// or runLock, so the exports refuse calls from inside the callback.
std::int32_t ReportStatus(std::int32_t statusClass, std::int32_t statusCode, const char* message);

// True on a thread that is inside StatusCallback.
bool InsideStatusCallback();

}  // namespace zvqrn
