#include "platform/socket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include "platform/clock.h"
#include "platform/posix/interfaces.h"

namespace zvqrn::platform {
namespace {

int Descriptor(SocketHandle socket) {
  return static_cast<int>(socket);
}

// How sockets are made: non-blocking, and not inherited by the host's child processes.
constexpr int SOCKET_FLAGS = SOCK_NONBLOCK | SOCK_CLOEXEC;

// Makes a new descriptor a socket handle: never 0, which a process with a closed standard input
// would get.
SocketHandle Adopt(int descriptor) {
  if (descriptor == 0) {
    descriptor = fcntl(0, F_DUPFD_CLOEXEC, 1);
    close(0);
  }
  return descriptor < 0 ? NO_SOCKET : descriptor;
}

sockaddr_in AddressOf(std::uint32_t address, std::uint16_t port) {
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_port = htons(port);
  name.sin_addr.s_addr = address;
  return name;
}

// A wait that a signal's handler has interrupted goes on for the time that is left.
SocketWait WaitFor(SocketHandle socket, short events, std::int32_t milliseconds) {
  pollfd entry{Descriptor(socket), events, 0};
  const std::int64_t deadline = MonotonicMilliseconds() + milliseconds;
  int ready = poll(&entry, 1, milliseconds);
  while (ready < 0 && errno == EINTR) {
    const std::int64_t left = deadline - MonotonicMilliseconds();
    ready = left > 0 ? poll(&entry, 1, static_cast<int>(left)) : 0;
  }
  if (ready < 0) {
    return SOCKET_FAILED;
  }
  if (ready == 0) {
    return SOCKET_TIMED_OUT;
  }
  return (entry.revents & POLLNVAL) != 0 ? SOCKET_FAILED : SOCKET_READY;
}

ip_mreqn RequestOf(const GroupMembership& membership) {
  ip_mreqn request{};
  request.imr_multiaddr.s_addr = membership.group;
  request.imr_ifindex = static_cast<int>(membership.interface);
  return request;
}

bool WouldWait() {
  return errno == EAGAIN;
}

}  // namespace

bool StartSockets() {
  return true;
}

void EndSockets() {}

void PrepareSockets() {}

SocketHandle OpenTcpSocket() {
  return Adopt(::socket(AF_INET, SOCK_STREAM | SOCKET_FLAGS, 0));
}

void CloseSocket(SocketHandle socket) {
  close(Descriptor(socket));
}

void EndSocket(SocketHandle socket) {
  shutdown(Descriptor(socket), SHUT_RDWR);
  CloseSocket(socket);
}

void EndSending(SocketHandle socket) {
  shutdown(Descriptor(socket), SHUT_WR);
}

bool BindListeningPort(SocketHandle socket, std::uint16_t port) {
  // Lets the port be bound again while connections of an earlier run are still dying.
  const int on = 1;
  setsockopt(Descriptor(socket), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  const sockaddr_in name = AddressOf(htonl(INADDR_ANY), port);
  return bind(Descriptor(socket), reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0;
}

std::int32_t BoundPort(SocketHandle socket) {
  sockaddr_in name{};
  socklen_t size = sizeof name;
  if (getsockname(Descriptor(socket), reinterpret_cast<sockaddr*>(&name), &size) != 0) {
    return -1;
  }
  return ntohs(name.sin_port);
}

bool StartListening(SocketHandle socket, std::int32_t backlog) {
  return listen(Descriptor(socket), backlog) == 0;
}

SocketHandle AcceptConnection(SocketHandle listening) {
  return Adopt(accept4(Descriptor(listening), nullptr, nullptr, SOCKET_FLAGS));
}

ConnectResult ConnectTo(SocketHandle socket, std::uint32_t address, std::uint16_t port,
                        std::int32_t milliseconds) {
  const sockaddr_in name = AddressOf(address, port);
  int error = 0;
  if (connect(Descriptor(socket), reinterpret_cast<const sockaddr*>(&name), sizeof name) != 0) {
    error = errno;
  }
  if (error == EINPROGRESS) {
    const SocketWait wait = WaitWritable(socket, milliseconds);
    if (wait != SOCKET_READY) {
      return wait == SOCKET_TIMED_OUT ? CONNECT_TIMED_OUT : CONNECT_FAILED;
    }
    socklen_t size = sizeof error;
    getsockopt(Descriptor(socket), SOL_SOCKET, SO_ERROR, &error, &size);
  }
  if (error == 0) {
    return CONNECT_DONE;
  }
  return error == ECONNREFUSED ? CONNECT_REFUSED : CONNECT_FAILED;
}

SocketWait WaitReadable(SocketHandle socket, std::int32_t milliseconds) {
  return WaitFor(socket, POLLIN, milliseconds);
}

SocketWait WaitWritable(SocketHandle socket, std::int32_t milliseconds) {
  return WaitFor(socket, POLLOUT, milliseconds);
}

std::int32_t ReceiveBytes(SocketHandle socket, void* buffer, std::int32_t size) {
  const ssize_t count = recv(Descriptor(socket), buffer, static_cast<std::size_t>(size), 0);
  if (count < 0) {
    return WouldWait() || errno == EINTR ? RECEIVE_NOTHING : -1;
  }
  return static_cast<std::int32_t>(count);
}

bool PeerMayHaveGone(SocketHandle socket) {
  pollfd entry{Descriptor(socket), POLLRDHUP, 0};
  return poll(&entry, 1, 0) > 0;
}

std::int32_t SendBytes(SocketHandle socket, const void* bytes, std::int32_t size) {
  const ssize_t count =
      send(Descriptor(socket), bytes, static_cast<std::size_t>(size), MSG_NOSIGNAL);
  if (count < 0) {
    return WouldWait() || errno == EINTR ? SEND_NO_ROOM : -1;
  }
  return static_cast<std::int32_t>(count);
}

SocketHandle OpenUdpSocket() {
  return Adopt(::socket(AF_INET, SOCK_DGRAM | SOCKET_FLAGS, 0));
}

bool BindDatagramPort(SocketHandle socket, std::uint32_t address, std::uint16_t port, bool shared) {
  const int on = 1;
  if (shared && setsockopt(Descriptor(socket), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0) {
    return false;
  }
  const sockaddr_in name = AddressOf(address, port);
  return bind(Descriptor(socket), reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0;
}

bool JoinGroup(SocketHandle socket, std::uint32_t group, GroupMembership* membership) {
  // Without this, multicasts for groups that other programs have joined arrive here too.
  const int off = 0;
  setsockopt(Descriptor(socket), IPPROTO_IP, IP_MULTICAST_ALL, &off, sizeof off);
  OwnInterface own{};
  if (FindOwnInterface(&own) == HOST_ADDRESS_UNREADABLE) {
    return false;
  }
  *membership = GroupMembership{group, own.index};
  const ip_mreqn request = RequestOf(*membership);
  return setsockopt(Descriptor(socket), IPPROTO_IP, IP_ADD_MEMBERSHIP, &request, sizeof request) ==
         0;
}

bool LeaveGroup(SocketHandle socket, const GroupMembership& membership) {
  const ip_mreqn request = RequestOf(membership);
  return setsockopt(Descriptor(socket), IPPROTO_IP, IP_DROP_MEMBERSHIP, &request, sizeof request) ==
         0;
}

bool SendMulticastFrom(SocketHandle socket, std::uint32_t interfaceAddress) {
  in_addr name{};
  name.s_addr = interfaceAddress;
  const int on = 1;
  return setsockopt(Descriptor(socket), IPPROTO_IP, IP_MULTICAST_IF, &name, sizeof name) == 0 &&
         setsockopt(Descriptor(socket), IPPROTO_IP, IP_MULTICAST_LOOP, &on, sizeof on) == 0;
}

std::int32_t ReceiveDatagram(SocketHandle socket, void* buffer, std::int32_t size,
                             Endpoint* sender) {
  sockaddr_in name{};
  socklen_t nameSize = sizeof name;
  // MSG_TRUNC: the length as it was sent, also of a datagram that does not fit.
  const ssize_t length = recvfrom(Descriptor(socket), buffer, static_cast<std::size_t>(size),
                                  MSG_TRUNC, reinterpret_cast<sockaddr*>(&name), &nameSize);
  if (length < 0) {
    return WouldWait() || errno == EINTR ? RECEIVE_NOTHING : -1;
  }
  *sender = Endpoint{name.sin_addr.s_addr, ntohs(name.sin_port)};
  return length > size ? -1 : static_cast<std::int32_t>(length);
}

bool SendDatagramTo(SocketHandle socket, const void* bytes, std::int32_t size,
                    const Endpoint& receiver) {
  const sockaddr_in name = AddressOf(receiver.address, receiver.port);
  return sendto(Descriptor(socket), bytes, static_cast<std::size_t>(size), MSG_NOSIGNAL,
                reinterpret_cast<const sockaddr*>(&name), sizeof name) == size;
}

void AddressToText(std::uint32_t address, char (&text)[ADDRESS_TEXT_SIZE]) {
  in_addr name{};
  name.s_addr = address;
  inet_ntop(AF_INET, &name, text, ADDRESS_TEXT_SIZE);
}

bool TextToAddress(const char* text, std::uint32_t* address) {
  in_addr name{};
  if (inet_pton(AF_INET, text, &name) != 1) {
    return false;
  }
  *address = name.s_addr;
  return true;
}

}  // namespace zvqrn::platform
