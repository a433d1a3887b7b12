// Sends discovery's replies.  On the reply threads, several at once, each with a socket of its own.
#pragma once

#include <cstdint>

#include "discovery/slp_message.h"

namespace zvqrn {

// Sends one datagram `count` times to an IPv4 address in dotted text, with a pause after each, the
// last one included, and then writes a line to the debugger.  What cannot be sent is not reported.
// A stop does not break it off.
void SendDatagram(const char* bytes, std::int32_t byteCount, const char* address,
                  std::uint16_t port, std::int32_t count, std::int32_t pauseMs);

// Builds a reply and sends it; SLP_OK also when it could not be delivered.
SlpResult SendSlpReply(std::int32_t xid, std::int32_t errorCode, const char* attributeList,
                       const char* languageTag, const char* address, std::uint16_t port,
                       std::int32_t count, std::int32_t pauseMs);

}  // namespace zvqrn
