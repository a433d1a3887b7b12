// --ask: the program that started this host decides in its place.  Questions go out as JSON lines,
// words on them come in as JSON lines; docs/ask.md is the contract, docs/ask.schema.json its form.
#pragma once

#include "host/callbacks.h"

namespace zvqrn::host {

// Of the contract; grows when a line changes that others rely on.
constexpr std::int32_t ASK_VERSION = 1;

// Asks, waits for the word, and gives what the callback is to return; busy, or no, without a word
// in time.  On the library's threads.
std::int32_t AskAboutRequest(HostState* state, const EventHeader& header, std::int32_t documentKind,
                             const void* requestData, std::int32_t requestDataSize);
std::int32_t AskAboutPeer(HostState* state, const PeerDescription& peer);

// Follows the lines that have come; false when the host is to end: it was told so, or the other
// program has gone.  Called by the main loop.
bool TakeWords(HostState* state);

// Ends the waiting for words; questions get none from now on.
void AskNoMore(HostState* state);

}  // namespace zvqrn::host
