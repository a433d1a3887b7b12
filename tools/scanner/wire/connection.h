// One TCP connection from the scanner to a PC, with time-outs on everything and, if wanted, a trace
// of every byte on standard error.  What ends a command early is thrown as a Failure.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/socket.h"
#include "scanner/command/exit_code.h"
#include "scanner/wire/capture_file.h"
#include "scanner/wire/message.h"

namespace zvqrn::scanner {

// The PC ended the connection.
struct ConnectionEnded : Failure {
  explicit ConnectionEnded(const std::string& reason) : Failure(EXIT_PROTOCOL_ERROR, reason) {}
};

// Where to connect, and how bytes are sent: all at once, or in pieces with pauses between them.
struct Link {
  std::string address = "127.0.0.1";
  std::uint16_t port = 2968;
  std::uint32_t source =
      0;  // the address to connect from, network byte order; 0: the system's choice
  std::int32_t timeoutMs = 10000;
  std::int32_t pieceSize = 0;
  std::int32_t pauseMs = 0;
  std::int32_t bodyLimit = BODY_LIMIT;  // the longest body that the PC may send
  bool trace = false;
  std::string* record = nullptr;         // gets the trace too
  std::shared_ptr<CaptureFile> capture;  // null: none is kept
};

struct Connection {
  Link link;
  platform::SocketHandle socket = platform::NO_SOCKET;
  std::string received;  // bytes that no message has been made of yet
};

struct CloseConnection {
  void operator()(Connection* connection) const;
};
using OpenConnection = std::unique_ptr<Connection, CloseConnection>;

// Connects; throws when nothing listens there or nothing answers in time.
OpenConnection Connect(const Link& link);

// Sends all the bytes; throws when the PC takes none for the link's time-out or has gone.
void Send(Connection* connection, const std::string& bytes);

// Takes the next whole message, waiting until `deadlineMs` of the monotonic clock.  False when it
// has not come by then; throws when the connection ends or what comes can be no message.
bool Receive(Connection* connection, std::int64_t deadlineMs, Message* message);

// True when bytes have come that cannot be the beginning of a message.
bool HoldsForeignBytes(const Connection& connection);

}  // namespace zvqrn::scanner
