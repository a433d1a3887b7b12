// Answers an accepted discovery request on a thread of its own: asks the host where it must, and
// sends the reply as a burst.
#pragma once

#include <cstdint>

#include "base/tagged_list.h"

namespace zvqrn {

// The burst: so many sends, with a pause after each.
constexpr std::int32_t REPLY_COUNT = 3;
constexpr std::int32_t REPLY_PAUSE_MS = 500;

// Starts the thread that answers the request of a node of discoveryTable and removes it.  When the
// system refuses a thread, the request is removed at once, so that a repeat of it is heard again.
void StartReply(ListNode* node);

// Waits until no reply thread uses a request any more.  No burst begins once discovery has been
// told to stop and those that have begun are finished, so this takes a burst's 1.5 s at most, and
// longer only while the host's filter does.
void WaitForReplies();

}  // namespace zvqrn
