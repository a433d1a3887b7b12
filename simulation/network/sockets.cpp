// src/platform/socket.h and waker.h on the simulated network.

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "machine/races.h"
#include "network/network.h"
#include "network/streams.h"
#include "platform/socket.h"
#include "platform/waker.h"

namespace zvqrn::platform {

struct Waker {
  bool isOpen;
  bool isCalled;
};

}  // namespace zvqrn::platform

namespace zvqrn::simulation {

Network network;

static std::deque<platform::Waker> wakers;

namespace {

constexpr std::uint16_t FIRST_FREE_PORT = 40000;
constexpr std::uint32_t LOOPBACK_NET = 127;
constexpr std::size_t MOST_DATAGRAMS = 64;  // that wait in a socket

// 10.68.0.x in network byte order; scanners begin at .20.
constexpr std::uint32_t Local(std::uint32_t host) {
  return host << 24U | 68U << 8U | 10U;
}
constexpr std::uint32_t FIRST_SCANNER = 20;

bool IsGroup(std::uint32_t address) {
  return (address & 0xF0U) == 0xE0U;
}

// The socket of a call by its owner, who must not have closed it.
Socket* Own(platform::SocketHandle handle, const char* call) {
  Socket* socket = SocketOf(handle);
  if (!socket->isOpen) {
    Finding("%s with socket %d, which has been closed", call, static_cast<int>(handle));
  }
  return socket;
}

platform::SocketHandle Open(Socket::Kind kind) {
  SwitchPoint();
  const bool unready =
      machine.current->machine == PC && machine.temper.likeWindows && machine.socketUses == 0;
  if (Fails(CALL_OPEN_SOCKET) || unready) {
    return platform::NO_SOCKET;
  }
  const Socket* socket = MakeSocket(machine.current->machine, kind);
  DIARY("opens socket %d", static_cast<int>(socket->handle));
  return socket->handle;
}

bool IsReadable(const Socket& socket) {
  return !socket.unread.empty() || socket.endHasCome || socket.isReset ||
         !socket.arrivals.empty() || !socket.datagrams.empty();
}

bool IsPortTaken(const Socket& mine, std::uint16_t port, Socket::Kind kind, bool shared) {
  return std::any_of(network.sockets.begin(), network.sockets.end(), [&](const Socket& other) {
    return &other != &mine && other.isOpen && other.machine == mine.machine && other.kind == kind &&
           other.port == port &&
           (other.address == mine.address || other.address == 0 || mine.address == 0) &&
           !(shared && other.isShared);
  });
}

bool IsMember(const Socket& socket, std::uint32_t group) {
  const Interface* own = OwnInterface();
  return std::any_of(socket.memberships.begin(), socket.memberships.end(), [&](const auto& at) {
    return at.group == group && own != nullptr && at.interface == own->index;
  });
}

// The socket that a datagram is for: one that is bound to its very address before one that is bound
// to any; null when nobody hears it.
Socket* ReceiverOf(const SentDatagram& datagram) {
  const platform::Endpoint& to = datagram.to;
  const std::int32_t receiver = IsGroup(to.address) ? PC : MachineOf(to.address, datagram.machine);
  Socket* found = nullptr;
  for (Socket& socket : network.sockets) {
    if (!socket.isOpen || socket.kind != Socket::DATAGRAM || socket.port != to.port) {
      continue;
    }
    if (socket.address == to.address) {
      return &socket;
    }
    const bool fits = IsGroup(to.address) ? IsMember(socket, to.address)
                                          : socket.address == 0 && socket.machine == receiver;
    found = fits && found == nullptr ? &socket : found;
  }
  return found;
}

void Deliver(SentDatagram* datagram) {
  Socket* socket = ReceiverOf(*datagram);
  if (socket == nullptr && IsGroup(datagram->to.address) && OwnInterface() != nullptr) {
    datagram->missedAt = machine.now;
  }
  if (socket == nullptr || socket->datagrams.size() >= MOST_DATAGRAMS) {
    return;
  }
  socket->datagrams.push_back({datagram->bytes, datagram->from});
  if (socket->machine == PC) {
    datagram->heardAt.push_back(machine.now);
  }
  Notify(socket);
}

std::string TextOf(const platform::Endpoint& endpoint) {
  char text[platform::ADDRESS_TEXT_SIZE];
  platform::AddressToText(endpoint.address, text);
  return text + (":" + std::to_string(endpoint.port));
}

}  // namespace

void BeginNetwork(const Weather& weather) {
  network = Network{};
  network.weather = weather;
  wakers.clear();
  network.interfaces = {Interface{1, Local(2), true}, Interface{2, Local(3), false}};
}

Socket* SocketOf(platform::SocketHandle handle) {
  if (handle < 1 || handle > static_cast<platform::SocketHandle>(network.sockets.size())) {
    Finding("a socket is used that is none");
  }
  return &network.sockets[static_cast<std::size_t>(handle - 1)];
}

Socket* MakeSocket(std::int32_t onMachine, Socket::Kind kind) {
  Socket& socket = network.sockets.emplace_back();
  socket.handle = static_cast<platform::SocketHandle>(network.sockets.size());
  socket.machine = onMachine;
  socket.kind = kind;
  socket.isOpen = true;
  socket.peerGoneAt = socket.acceptedAt = socket.closedAt = NEVER;
  return &socket;
}

std::uint32_t AddressOf(std::int32_t scanner) {
  return Local(FIRST_SCANNER + static_cast<std::uint32_t>(scanner));
}

std::int32_t MachineOf(std::uint32_t address, std::int32_t seenFrom) {
  if ((address & 0xFFU) == LOOPBACK_NET) {
    return seenFrom;
  }
  for (const Interface& interface : network.interfaces) {
    if (interface.isUp && interface.address == address) {
      return PC;
    }
  }
  const std::uint32_t host = address >> 24U;
  return Local(host) == address && host > FIRST_SCANNER
             ? static_cast<std::int32_t>(host - FIRST_SCANNER)
             : -1;
}

const Interface* OwnInterface() {
  for (const Interface& interface : network.interfaces) {
    if (interface.isUp) {
      return &interface;
    }
  }
  return nullptr;
}

Socket* TakePort(Socket::Kind kind, std::uint16_t port) {
  Socket* socket = MakeSocket(PC, kind);
  socket->port = port;
  return socket;
}

void GivePortBack(Socket* socket) {
  socket->isOpen = false;
  CloseListening(socket);
}

std::int64_t OpenSockets() {
  return std::count_if(network.sockets.begin(), network.sockets.end(),
                       [](const Socket& socket) { return socket.machine == PC && socket.isOpen; });
}

}  // namespace zvqrn::simulation

namespace zvqrn::platform {

using namespace simulation;

bool StartSockets() {
  SwitchPoint();
  if (Fails(CALL_START_SOCKETS)) {
    return false;
  }
  machine.socketUses++;
  return true;
}

void EndSockets() {
  SwitchPoint();
  if (--machine.socketUses < 0) {
    Finding("the use of sockets is ended more often than begun");
  }
}

void PrepareSockets() {}

SocketHandle OpenTcpSocket() {
  return Open(Socket::FRESH);
}

SocketHandle OpenUdpSocket() {
  return Open(Socket::DATAGRAM);
}

void CloseSocket(SocketHandle handle) {
  SwitchPoint();
  Socket* socket = Own(handle, "close");
  DIARY("closes socket %d", static_cast<int>(handle));
  socket->isOpen = false;
  socket->closedAt = machine.now;
  if (socket->kind == Socket::LISTENING) {
    CloseListening(socket);
  } else if (socket->kind == Socket::STREAM) {
    CloseStream(socket);
  }
  Notify(socket);
}

void EndSocket(SocketHandle socket) {
  CloseSocket(socket);
}

void EndSending(SocketHandle handle) {
  SwitchPoint();
  Socket* socket = Own(handle, "end of sending");
  DIARY("ends its side of socket %d", static_cast<int>(handle));
  socket->ends = true;
  Transmit(socket);
}

bool BindListeningPort(SocketHandle handle, std::uint16_t port) {
  SwitchPoint();
  Socket* socket = Own(handle, "bind");
  if (Fails(CALL_BIND) || IsPortTaken(*socket, port, Socket::LISTENING, false)) {
    return false;
  }
  socket->port = port;
  return true;
}

std::int32_t BoundPort(SocketHandle handle) {
  SwitchPoint();
  return Fails(CALL_BOUND_PORT) ? -1 : Own(handle, "bound port")->port;
}

bool StartListening(SocketHandle handle, std::int32_t backlog) {
  SwitchPoint();
  Socket* socket = Own(handle, "listen");
  if (Fails(CALL_LISTEN)) {
    return false;
  }
  socket->kind = Socket::LISTENING;
  socket->backlog = static_cast<std::size_t>(backlog);
  return true;
}

SocketHandle AcceptConnection(SocketHandle handle) {
  SwitchPoint();
  Socket* listening = Own(handle, "accept");
  if (listening->arrivals.empty() || Fails(CALL_ACCEPT)) {
    return NO_SOCKET;
  }
  Socket* socket = listening->arrivals.front();
  listening->arrivals.erase(listening->arrivals.begin());
  socket->acceptedAt = machine.now;
  DIARY("accepts socket %d, the peer of %d", static_cast<int>(socket->handle),
        static_cast<int>(socket->peer->handle));
  return socket->handle;
}

ConnectResult ConnectTo(SocketHandle handle, std::uint32_t address, std::uint16_t port,
                        std::int32_t milliseconds) {
  SwitchPoint();
  Socket* socket = Own(handle, "connect");
  const Micros until = machine.now + milliseconds * MS;
  AskForConnection(socket, Endpoint{address, port});
  while (!socket->isConnected && !socket->isRefused && !socket->isReset && machine.now < until) {
    WaitFor(until, socket);
  }
  const ConnectResult result = socket->isConnected && !socket->isReset ? CONNECT_DONE
                               : socket->isRefused || socket->isReset  ? CONNECT_REFUSED
                                                                       : CONNECT_TIMED_OUT;
  DIARY("connects socket %d: %s", static_cast<int>(handle),
        result == CONNECT_DONE      ? "done"
        : result == CONNECT_REFUSED ? "refused"
                                    : "timed out");
  return result;
}

namespace {

template <typename Ready>
SocketWait WaitUntilReady(Socket* socket, std::int32_t milliseconds, Ready ready) {
  SwitchPoint();
  if (Fails(CALL_WAIT_SOCKET)) {
    return SOCKET_FAILED;
  }
  const Micros until = machine.now + milliseconds * MS;
  while (!ready(*socket)) {
    if (machine.now >= until) {
      return SOCKET_TIMED_OUT;
    }
    if (Fails(CALL_WAKE_FOR_NOTHING)) {
      return SOCKET_READY;
    }
    WaitFor(until, socket);
    Own(socket->handle, "wait");
  }
  return SOCKET_READY;
}

}  // namespace

SocketWait WaitReadable(SocketHandle socket, std::int32_t milliseconds) {
  return WaitUntilReady(Own(socket, "wait"), milliseconds, IsReadable);
}

SocketWait WaitWritable(SocketHandle socket, std::int32_t milliseconds) {
  return WaitUntilReady(Own(socket, "wait"), milliseconds,
                        [](const Socket& s) { return RoomToSend(s) > 0 || s.isReset; });
}

std::int32_t ReceiveBytes(SocketHandle handle, void* buffer, std::int32_t size) {
  SwitchPoint();
  Socket* socket = Own(handle, "receive");
  if (Fails(CALL_RECEIVE)) {
    return -1;
  }
  if (socket->unread.empty()) {
    return socket->isReset ? -1 : socket->endHasCome ? 0 : RECEIVE_NOTHING;
  }
  const std::size_t count =
      socket->unread.copy(static_cast<char*>(buffer), static_cast<std::size_t>(size));
  socket->unread.erase(0, count);
  socket->read += static_cast<std::int64_t>(count);
  DIARY("receives %d bytes from socket %d: %s", static_cast<int>(count), static_cast<int>(handle),
        Shown(buffer, static_cast<std::int64_t>(count)).c_str());
  TellOfRoom(socket);
  return static_cast<std::int32_t>(count);
}

bool PeerMayHaveGone(SocketHandle handle) {
  SwitchPoint();
  const Socket* socket = Own(handle, "a look at the peer");
  return socket->endHasCome || socket->isReset ||
         (machine.temper.likeWindows && !socket->unread.empty());
}

std::int32_t SendBytes(SocketHandle handle, const void* bytes, std::int32_t size) {
  SwitchPoint();
  Socket* socket = Own(handle, "send");
  if (Fails(CALL_SEND) || socket->isReset || socket->ends) {
    return -1;
  }
  if (Fails(CALL_SEND_NOTHING)) {
    return 0;
  }
  const std::int64_t room = Fails(CALL_SEND_PIECE) ? 1 : RoomToSend(*socket);
  const std::int64_t count = std::min<std::int64_t>(size, room);
  if (count <= 0) {
    return SEND_NO_ROOM;
  }
  socket->unsent.append(static_cast<const char*>(bytes), static_cast<std::size_t>(count));
  socket->given += count;
  socket->sentMarks.push_back({socket->given, machine.now});
  DIARY("sends %d of %d bytes on socket %d: %s", static_cast<int>(count), size,
        static_cast<int>(handle), Shown(bytes, count).c_str());
  Transmit(socket);
  return static_cast<std::int32_t>(count);
}

bool BindDatagramPort(SocketHandle handle, std::uint32_t address, std::uint16_t port, bool shared) {
  SwitchPoint();
  Socket* socket = Own(handle, "bind");
  socket->address = address;
  if (Fails(CALL_BIND) || IsPortTaken(*socket, port, Socket::DATAGRAM, shared)) {
    return false;
  }
  socket->port = port;
  socket->isShared = shared;
  return true;
}

bool JoinGroup(SocketHandle handle, std::uint32_t group, GroupMembership* membership) {
  SwitchPoint();
  Socket* socket = Own(handle, "join");
  const Interface* own = OwnInterface();
  if (Fails(CALL_JOIN)) {
    return false;
  }
  // Without an adapter the group is joined on loopback.
  *membership = GroupMembership{group, own != nullptr ? own->index : 0};
  const bool isNew = !std::any_of(
      socket->memberships.begin(), socket->memberships.end(), [&](const GroupMembership& other) {
        return other.group == group && other.interface == membership->interface;
      });
  if (isNew) {
    socket->memberships.push_back(*membership);
  }
  DIARY("joins on interface %u: %s", membership->interface, isNew ? "done" : "refused");
  return isNew;
}

bool LeaveGroup(SocketHandle handle, const GroupMembership& membership) {
  SwitchPoint();
  Socket* socket = Own(handle, "leave");
  auto& all = socket->memberships;
  const std::size_t before = all.size();
  all.erase(std::remove_if(all.begin(), all.end(),
                           [&](const GroupMembership& other) {
                             return other.group == membership.group &&
                                    other.interface == membership.interface;
                           }),
            all.end());
  return all.size() < before;
}

bool SendMulticastFrom(SocketHandle, std::uint32_t) {
  return true;
}

std::int32_t ReceiveDatagram(SocketHandle handle, void* buffer, std::int32_t size,
                             Endpoint* sender) {
  SwitchPoint();
  Socket* socket = Own(handle, "receive");
  if (Fails(CALL_RECEIVE_DATAGRAM)) {
    return -1;
  }
  if (socket->datagrams.empty()) {
    return RECEIVE_NOTHING;
  }
  const Socket::Datagram datagram = socket->datagrams.front();
  socket->datagrams.pop_front();
  *sender = datagram.sender;
  const std::size_t count =
      datagram.bytes.copy(static_cast<char*>(buffer), static_cast<std::size_t>(size));
  DIARY("receives a datagram of %d bytes from %s: %s", static_cast<int>(datagram.bytes.size()),
        TextOf(*sender).c_str(), Shown(buffer, static_cast<std::int64_t>(count)).c_str());
  return count < datagram.bytes.size() ? -1 : static_cast<std::int32_t>(count);
}

bool SendDatagramTo(SocketHandle handle, const void* bytes, std::int32_t size,
                    const Endpoint& receiver) {
  SwitchPoint();
  Socket* socket = Own(handle, "send");
  const Interface* own = OwnInterface();
  const bool hasWay = socket->machine != PC || own != nullptr;
  if (Fails(CALL_SEND_DATAGRAM)) {
    return false;
  }
  if (socket->port == 0) {
    socket->port = static_cast<std::uint16_t>(FIRST_FREE_PORT + handle);
  }
  SentDatagram& sent = network.datagrams.emplace_back();
  sent.time = machine.now;
  sent.machine = socket->machine;
  const std::uint32_t ownAddress = !hasWay                 ? 0
                                   : socket->machine == PC ? own->address
                                                           : simulation::AddressOf(socket->machine);
  sent.from = {socket->address != 0 ? socket->address : ownAddress, socket->port};
  sent.to = receiver;
  sent.bytes.assign(static_cast<const char*>(bytes), static_cast<std::size_t>(size));
  DIARY("sends a datagram of %d bytes to %s: %s", size, TextOf(receiver).c_str(),
        Shown(bytes, size).c_str());
  const Weather& weather = network.weather;
  const int copies = !hasWay || machine.dice.OneIn(weather.lossOdds) ? 0
                     : machine.dice.OneIn(weather.doubleOdds)        ? 2
                                                                     : 1;
  for (int i = 0; i < copies; i++) {
    const Micros jitter = weather.jitter > 0 ? machine.dice.Below(4 * weather.jitter) : 0;
    At(machine.now + weather.delay + jitter, [&sent] { Deliver(&sent); });
  }
  return hasWay;
}

void AddressToText(std::uint32_t address, char (&text)[ADDRESS_TEXT_SIZE]) {
  std::snprintf(text, sizeof text, "%u.%u.%u.%u", address & 0xFFU, address >> 8U & 0xFFU,
                address >> 16U & 0xFFU, address >> 24U);
}

bool TextToAddress(const char* text, std::uint32_t* address) {
  unsigned part[4] = {};
  char rest = 0;
  // NOLINTNEXTLINE(cert-err34-c)  three digits fit
  if (std::sscanf(text, "%3u.%3u.%3u.%3u%c", &part[0], &part[1], &part[2], &part[3], &rest) != 4 ||
      std::any_of(part, part + 4, [](unsigned value) { return value > 255; })) {
    return false;
  }
  *address = part[0] | part[1] << 8U | part[2] << 16U | part[3] << 24U;
  return true;
}

// ---- Wakers
// --------------------------------------------------------------------------------------

Waker* MakeWaker() {
  SwitchPoint();
  if (Fails(CALL_MAKE_WAKER)) {
    return nullptr;
  }
  machine.handles++;
  return &wakers.emplace_back(Waker{true, false});
}

void CloseWaker(Waker* waker) {
  SwitchPoint();
  if (!waker->isOpen) {
    Finding("a waker is closed twice");
  }
  waker->isOpen = false;
  machine.handles--;
}

void Wake(Waker* waker) {
  SwitchPoint();
  if (!waker->isOpen) {
    Finding("a waker is used that has been closed");
  }
  Release(waker);
  waker->isCalled = true;
  Notify(waker);
}

WakerWait WaitReadableOrWoken(SocketHandle handle, Waker* waker, std::int32_t milliseconds) {
  SwitchPoint();
  Socket* socket = Own(handle, "wait");
  if (Fails(CALL_WAIT_WOKEN)) {
    return WAKER_FAILED;
  }
  const Micros until = machine.now + milliseconds * MS;
  for (;;) {
    const bool isCalled = waker != nullptr && waker->isCalled;
    const bool readable = IsReadable(*socket);
    if (isCalled) {
      Acquire(waker);
      waker->isCalled = false;
    }
    if (isCalled || readable || machine.now >= until) {
      return readable ? WAKER_SOCKET_READY : isCalled ? WAKER_WOKEN : WAKER_TIMED_OUT;
    }
    if (Fails(CALL_WAKE_FOR_NOTHING)) {
      return WAKER_SOCKET_READY;
    }
    WaitFor(until, socket, waker);
    Own(handle, "wait");
  }
}

}  // namespace zvqrn::platform
