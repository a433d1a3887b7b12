// What quorin-host prints: each thing that happens, as prose or as one JSON object a line.  The
// caller sees to it that only one thread at a time prints.
#pragma once

#include <cstdint>
#include <string>

#include "host/options.h"
#include "zvqrn/zvqrn.h"

namespace zvqrn::host {

// The service runs (`waiting`: as soon as the PC has a usable address).
void LogStarted(const HostOptions& options, const std::string& pcName, bool waiting);

// A request has come; `number` counts them.
void LogRequest(bool json, std::int32_t number, const EventHeader& header,
                std::int32_t documentKind, const void* requestData, std::int32_t size);

// The callback returns `code` for that request.
void LogAnswer(bool json, std::int32_t number, const EventHeader& header, std::int32_t code);

// Data was given to the library for the scanner of request `number`; `newUid` is the name under
// which it travels, `result` what QRNSendData gave.
void LogSend(bool json, std::int32_t number, const EventHeader& header, const std::string& newUid,
             const std::string& bytes, std::int32_t result);

// The same to the program that --ask asks: a question, and its word on it.
void LogPeerQuestion(std::int32_t number, const PeerDescription& peer);
void LogPeerAnswer(std::int32_t number, bool answered);

// No word on a question came in time; what follows is this host's own.
void LogExpired(std::int32_t number);

// A line of that program that cannot be followed, and why.
void LogMistake(std::size_t line, const std::string& reason);

// A scanner looks for this PC by its own name.
void LogPeer(bool json, const PeerDescription& peer, bool answered);

// The library tells of a condition of the service.
void LogStatus(bool json, std::int32_t statusClass, std::int32_t statusCode,
               const std::string& message);

// The service has stopped (`result`: what QRNStopService gave) after so many requests.
void LogStopped(bool json, std::int32_t result, std::int32_t requests);

}  // namespace zvqrn::host
