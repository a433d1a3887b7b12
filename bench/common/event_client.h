// A scanner on the service's main connection, and other clients that exchange messages of known
// sizes over one connection.  Every answer is checked; a wrong one throws.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "common/messages.h"
#include "common/sockets.h"

namespace zvqrn::bench {

struct EventClient {
  Descriptor socket{};
  RequestText request{};
  std::string answer{};  // the last one; its size is that of every answer
  std::uint64_t sent = 0;
  std::string expected{};  // with what every answer begins
  // Where the uid stands in `expected`, which then is a whole answer: in each its request's own.
  std::size_t uidAt = std::string::npos;
};

// Connects as the main connection, waiting for an earlier one to end, and sends one single request.
EventClient ConnectToService();

// A client of a peer that answers with so many bytes, which nobody looks at.
EventClient PeerClient(std::uint16_t port, const RequestText& request, std::size_t answerSize);

// From now on the client sends that request; sends the first.
void SwitchRequest(EventClient* client, RequestText request);

// Sends the request with the next uid, and receives the bytes of an answer.
void SendNext(EventClient* client);
void ReceiveAnswer(EventClient* client);

// Receives so many messages of the service and nothing after them, and gives their bytes; `onEach`
// hears of each that is whole, with the place of its end.
std::string ReceiveMessages(const Descriptor& socket, std::size_t count,
                            const std::function<void(std::size_t end)>& onEach = {});

// All give nanoseconds from before the first byte is sent to the last byte of the last answer.
double Exchange(EventClient* client);
double ExchangePipelined(EventClient* client, std::size_t count);  // so many requests in one write

// Leaves, connects anew at once and exchanges one message.  A service says that it is busy while
// the old connection has not ended; it is then asked again.
double Reconnect(EventClient* client, std::uint16_t port);

// Throws unless `answers` are those to the client's last so many requests, in any order.
void RequireAnswers(const EventClient& client, std::string_view answers, std::size_t count);

}  // namespace zvqrn::bench
