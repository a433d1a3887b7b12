#include "scanner/wire/connection.h"

#include <algorithm>

#include "common/adapters.h"
#include "common/output.h"
#include "common/text.h"
#include "platform/clock.h"
#include "platform/thread.h"

namespace zvqrn::scanner {

namespace {

constexpr std::int32_t RECEIVE_SIZE = 65536;
constexpr std::size_t SHOWN_OF_FOREIGN_BYTES = 60;
// A PC that sends without end must not fill the memory with its trace.
constexpr std::size_t RECORD_LIMIT = std::size_t{4} * 1024 * 1024;

void Trace(const Connection& connection, const char* direction, const std::string& bytes) {
  const std::string text = std::string(direction) + " " + std::to_string(bytes.size()) + " bytes";
  if (connection.link.record != nullptr && connection.link.record->size() < RECORD_LIMIT) {
    *connection.link.record += tools::TimeText() + "  " + text + "\n" + tools::HexDump(bytes, "  ");
  }
  if (connection.link.trace) {
    tools::PrintError(text);
    const std::string dump = tools::HexDump(bytes, "  ");
    tools::PrintError(dump.substr(0, dump.size() - 1));
  }
}

std::string PlaceOfPeer(const Link& link) {
  return link.address + " port " + std::to_string(link.port);
}

std::string BytesInHand(const Connection& connection) {
  if (connection.received.empty()) {
    return {};
  }
  const std::string shown = connection.received.substr(0, SHOWN_OF_FOREIGN_BYTES);
  return " after " + std::to_string(connection.received.size()) +
         " bytes that are no message: " + tools::EscapeBytes(shown);
}

void SendPiece(Connection* connection, const std::string& bytes) {
  Trace(*connection, "sent", bytes);
  if (connection->link.capture != nullptr) {
    connection->link.capture->Sent(bytes);
  }
  std::size_t done = 0;
  while (done < bytes.size()) {
    const std::int32_t count = platform::SendBytes(connection->socket, bytes.data() + done,
                                                   static_cast<std::int32_t>(bytes.size() - done));
    if (count > 0) {
      done += static_cast<std::size_t>(count);
      continue;
    }
    if (count != platform::SEND_NO_ROOM) {
      throw ConnectionEnded("the PC ended the connection while it was being sent to");
    }
    const platform::SocketWait wait =
        platform::WaitWritable(connection->socket, connection->link.timeoutMs);
    if (wait != platform::SOCKET_READY) {
      throw Failure(EXIT_TIMED_OUT, "the PC does not take what is sent to it");
    }
  }
}

// False when nothing came by the deadline.
bool ReceiveSome(Connection* connection, std::int64_t deadlineMs) {
  const std::int64_t leftMs =
      std::max<std::int64_t>(deadlineMs - platform::MonotonicMilliseconds(), 0);
  const platform::SocketWait wait =
      platform::WaitReadable(connection->socket, static_cast<std::int32_t>(leftMs));
  if (wait == platform::SOCKET_TIMED_OUT) {
    return false;
  }
  std::string bytes(RECEIVE_SIZE, '\0');
  const std::int32_t count =
      wait == platform::SOCKET_READY
          ? platform::ReceiveBytes(connection->socket, bytes.data(), RECEIVE_SIZE)
          : -1;
  if (count == platform::RECEIVE_NOTHING) {
    return true;
  }
  if (count <= 0 && connection->link.capture != nullptr) {
    connection->link.capture->EndedByPc();
    connection->link.capture.reset();
  }
  if (count == 0) {
    throw ConnectionEnded("the PC closed the connection" + BytesInHand(*connection));
  }
  if (count < 0) {
    throw ConnectionEnded("the connection broke" + BytesInHand(*connection));
  }
  bytes.resize(static_cast<std::size_t>(count));
  Trace(*connection, "received", bytes);
  if (connection->link.capture != nullptr) {
    connection->link.capture->Received(bytes);
  }
  connection->received += bytes;
  return true;
}

// A capture that cannot be written any more has been told of already, and this runs while failures
// are on their way.
void NoteEnd(const Connection& connection) noexcept {
  try {
    if (connection.link.capture != nullptr) {
      connection.link.capture->EndedHere();
    }
  } catch (const Failure&) {
    tools::PrintError("the capture has no end");
  }
}

platform::ConnectResult ConnectSocket(const Connection& connection, std::uint32_t address) {
  const Link& link = connection.link;
  CaptureFile* capture = link.capture.get();
  std::uint32_t source = link.source;
  if (source != 0 && !tools::BindSource(connection.socket, source)) {
    throw Failure(EXIT_LOCAL_TROUBLE,
                  tools::AddressText(source) + " is no address of this machine");
  }
  const std::int64_t startUs = CaptureTime();
  const platform::ConnectResult result =
      platform::ConnectTo(connection.socket, address, link.port, link.timeoutMs);
  if (capture != nullptr) {
    if (source == 0) {
      tools::SourceAddressTowards(address, &source);
    }
    // The system gives the port back when nobody was there.
    constexpr std::int32_t SOME_PORT = 49152;
    const std::int32_t port = platform::BoundPort(connection.socket);
    capture->BeginConnection({source, static_cast<std::uint16_t>(port > 0 ? port : SOME_PORT)},
                             {address, link.port}, startUs);
  }
  if (capture != nullptr && result == platform::CONNECT_DONE) {
    capture->Connected();
  } else if (capture != nullptr && result == platform::CONNECT_REFUSED) {
    capture->Refused();
  }
  return result;
}

}  // namespace

void CloseConnection::operator()(Connection* connection) const {
  NoteEnd(*connection);
  platform::CloseSocket(connection->socket);
  platform::EndSockets();
  delete connection;
}

OpenConnection Connect(const Link& link) {
  std::uint32_t address = 0;
  if (!platform::TextToAddress(link.address.c_str(), &address)) {
    throw Failure(EXIT_USAGE, "'" + link.address + "' is no IPv4 address");
  }
  if (!platform::StartSockets()) {
    throw Failure(EXIT_LOCAL_TROUBLE, "this machine's network cannot be used");
  }
  OpenConnection connection(new Connection{link, platform::OpenTcpSocket(), {}});
  if (connection->socket <= platform::NO_SOCKET) {
    throw Failure(EXIT_LOCAL_TROUBLE, "this machine gives no socket");
  }
  switch (ConnectSocket(*connection, address)) {
    case platform::CONNECT_DONE:
      return connection;
    case platform::CONNECT_REFUSED:
      throw Failure(EXIT_NOTHING_THERE, "nothing listens at " + PlaceOfPeer(link));
    case platform::CONNECT_TIMED_OUT:
      throw Failure(EXIT_TIMED_OUT, "no connection to " + PlaceOfPeer(link) + " in time");
    default:
      throw Failure(EXIT_NOTHING_THERE, "there is no way to " + PlaceOfPeer(link));
  }
}

void Send(Connection* connection, const std::string& bytes) {
  const std::int32_t pieceSize = connection->link.pieceSize;
  const std::size_t step = pieceSize > 0 ? static_cast<std::size_t>(pieceSize) : bytes.size();
  for (std::size_t start = 0; start < bytes.size(); start += step) {
    if (start > 0 && connection->link.pauseMs > 0) {
      platform::SleepMilliseconds(connection->link.pauseMs);
    }
    SendPiece(connection, bytes.substr(start, step));
  }
}

bool Receive(Connection* connection, std::int64_t deadlineMs, Message* message) {
  while (true) {
    std::string why;
    switch (TakeMessage(&connection->received, connection->link.bodyLimit, message, &why)) {
      case READ_DONE:
        return true;
      case READ_BAD:
        throw Failure(EXIT_PROTOCOL_ERROR, "what came is no message of this protocol: " + why);
      case READ_MORE:
        break;
    }
    if (!ReceiveSome(connection, deadlineMs)) {
      return false;
    }
  }
}

bool HoldsForeignBytes(const Connection& connection) {
  const std::string& bytes = connection.received;
  for (const char* start : {"HTTP/1.0 200 OK\r\n", "POST /PushScan HTTP/1.0\r\n"}) {
    const std::string expected = start;
    const std::size_t size = std::min(expected.size(), bytes.size());
    if (bytes.compare(0, size, expected, 0, size) == 0) {
      return false;
    }
  }
  return true;
}

}  // namespace zvqrn::scanner
