#include "network/streams.h"

#include <algorithm>

namespace zvqrn::simulation {
namespace {

// When a request for a connection that found no room is made again.
constexpr Micros CONNECT_TRIES[] = {1 * SECOND, 3 * SECOND, 7 * SECOND, 15 * SECOND};

Micros ArrivalFrom(Socket* socket) {
  const Micros jitter = network.weather.jitter > 0 ? machine.dice.Below(network.weather.jitter) : 0;
  socket->lastArrival = std::max(socket->lastArrival, machine.now + network.weather.delay + jitter);
  return socket->lastArrival;
}

void ReceiveReset(Socket* socket) {
  if (socket->isReset) {
    return;
  }
  socket->isReset = true;
  socket->unsent.clear();
  if (network.weather.losesUnreadAtReset) {
    socket->unread.clear();
  }
  socket->peerGoneAt = std::min(socket->peerGoneAt, machine.now);
  Notify(socket);
}

void SendReset(Socket* from, Socket* to) {
  At(ArrivalFrom(from), [to] { ReceiveReset(to); });
}

// Tells the peer which bytes have come.
void Acknowledge(Socket* socket) {
  const std::int64_t count = socket->toAcknowledge;
  socket->toAcknowledge = 0;
  if (count == 0 || socket->peer == nullptr) {
    return;
  }
  Socket* peer = socket->peer;
  At(machine.now + network.weather.delay, [peer, count] {
    peer->unacknowledged -= count;
    Notify(peer);
    Transmit(peer);
  });
}

void ReceiveSegment(Socket* from, Socket* to, const std::string& bytes) {
  const auto size = static_cast<std::int64_t>(bytes.size());
  from->onTheWay -= size;
  if (to->isReset) {
    return;
  }
  if (!to->isOpen) {
    SendReset(to, from);
    return;
  }
  to->unread += bytes;
  to->cameMarks.push_back({to->read + static_cast<std::int64_t>(to->unread.size()), machine.now});
  Notify(to);
  // An acknowledgement is delayed, but every second full segment is acknowledged.
  to->toAcknowledge += size;
  if (to->toAcknowledge >= 2 * network.weather.segment) {
    Acknowledge(to);
  } else {
    At(machine.now + network.weather.acknowledgeDelay, [to] { Acknowledge(to); });
  }
}

void ReceiveEnd(Socket* to) {
  to->endHasCome = true;
  to->peerGoneAt = std::min(to->peerGoneAt, machine.now);
  Notify(to);
}

Socket* ListeningAt(std::int32_t onMachine, std::uint16_t port) {
  for (Socket& socket : network.sockets) {
    if (socket.kind == Socket::LISTENING && socket.isOpen && socket.machine == onMachine &&
        socket.port == port) {
      return &socket;
    }
  }
  return nullptr;
}

void AskAgain(Socket* socket, const platform::Endpoint& to, std::size_t tries) {
  Socket* listening =
      socket->isOpen ? ListeningAt(MachineOf(to.address, socket->machine), to.port) : nullptr;
  if (listening == nullptr) {
    At(ArrivalFrom(socket), [socket] {
      socket->isRefused = true;
      Notify(socket);
    });
    return;
  }
  if (listening->arrivals.size() > listening->backlog) {
    Reached("a full queue of arrivals");
    if (tries < std::size(CONNECT_TRIES)) {
      At(machine.now + CONNECT_TRIES[tries],
         [socket, to, tries] { AskAgain(socket, to, tries + 1); });
    }
    return;
  }
  Socket* accepted = MakeSocket(listening->machine, Socket::STREAM);
  accepted->port = to.port;
  accepted->peer = socket;
  accepted->isConnected = true;
  socket->peer = accepted;
  listening->arrivals.push_back(accepted);
  Notify(listening);
  At(ArrivalFrom(accepted), [socket] {
    socket->isConnected = true;
    Notify(socket);
  });
}

}  // namespace

void Transmit(Socket* socket) {
  Socket* peer = socket->peer;
  if (peer == nullptr || socket->isReset) {
    return;
  }
  const Weather& weather = network.weather;
  for (;;) {
    const auto waiting = static_cast<std::int64_t>(socket->unsent.size());
    const std::int64_t room =
        weather.window - static_cast<std::int64_t>(peer->unread.size()) - socket->onTheWay;
    std::int64_t size = std::min({waiting, room, weather.segment});
    // A small segment waits until everything before it has come (RFC 896), unless it is the last.
    const bool waits = size < weather.segment && socket->unacknowledged > 0 && !socket->ends;
    if (size <= 0 || waits) {
      break;
    }
    if (machine.dice.OneIn(weather.cutOdds)) {
      size = machine.dice.Between(1, size);
    }
    const std::string bytes = socket->unsent.substr(0, static_cast<std::size_t>(size));
    socket->unsent.erase(0, static_cast<std::size_t>(size));
    socket->unacknowledged += size;
    socket->onTheWay += size;
    Acknowledge(socket);
    At(ArrivalFrom(socket), [socket, peer, bytes] { ReceiveSegment(socket, peer, bytes); });
  }
  if (socket->ends && socket->unsent.empty() && !socket->endIsSent) {
    socket->endIsSent = true;
    At(ArrivalFrom(socket), [peer] { ReceiveEnd(peer); });
  }
}

std::int64_t RoomToSend(const Socket& socket) {
  return network.weather.sendBuffer - static_cast<std::int64_t>(socket.unsent.size()) -
         socket.unacknowledged;
}

void AskForConnection(Socket* socket, const platform::Endpoint& to) {
  socket->kind = Socket::STREAM;
  At(ArrivalFrom(socket), [socket, to] { AskAgain(socket, to, 0); });
}

void TellOfRoom(Socket* socket) {
  Socket* peer = socket->peer;
  if (!peer->unsent.empty()) {
    At(machine.now + network.weather.delay, [peer] { Transmit(peer); });
  }
}

void CloseStream(Socket* socket) {
  if (!socket->unread.empty()) {
    Reached("a close with bytes unread");
    BreakOff(socket->handle);
    return;
  }
  socket->ends = true;
  Transmit(socket);
}

void CloseListening(Socket* socket) {
  for (Socket* arrived : socket->arrivals) {
    arrived->isOpen = false;
    SendReset(arrived, arrived->peer);
  }
  socket->arrivals.clear();
}

void BreakOff(platform::SocketHandle handle) {
  Socket* socket = SocketOf(handle);
  socket->isOpen = false;
  socket->unsent.clear();
  if (socket->peer != nullptr && !socket->isReset) {
    SendReset(socket, socket->peer);
  }
  socket->isReset = true;
}

}  // namespace zvqrn::simulation
