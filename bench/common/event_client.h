// A scanner on the service's main connection, and other clients that exchange messages of known
// sizes over one connection.
#pragma once

#include <cstdint>
#include <string>

#include "common/messages.h"
#include "common/sockets.h"

namespace zvqrn::bench {

struct EventClient {
  Descriptor socket{};
  RequestText request{};
  std::string answer{};  // the last one; its size is that of every answer
  std::uint64_t sent = 0;
  std::string mark{};  // stands in every answer as it should be; empty: not looked at
};

// Connects as the main connection, waiting for an earlier one to end, and sends one single request.
EventClient ConnectToService();

// From now on the client sends STARTs; sends the first.
void SendStartsFrom(EventClient* client);

// One exchange; gives its time in nanoseconds, from before the first byte is sent to the last byte
// of the answer.
double Exchange(EventClient* client);

// So many requests in one write; gives the time until the last byte of the last answer.
double ExchangePipelined(EventClient* client, std::size_t count);

}  // namespace zvqrn::bench
