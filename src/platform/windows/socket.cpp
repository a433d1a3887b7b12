#include "platform/socket.h"

#include <initializer_list>

#include "platform/windows/windows_headers.h"

namespace zvqrn::platform {
namespace {

SOCKET SystemSocket(SocketHandle socket) {
  return static_cast<SOCKET>(socket);
}

// Makes a new system socket a handle: non-blocking, and not inherited by the host's child
// processes.
SocketHandle Adopt(SOCKET socket) {
  if (socket == INVALID_SOCKET) {
    return NO_SOCKET;
  }
  u_long on = 1;
  ioctlsocket(socket, static_cast<long>(FIONBIO), &on);
  SetHandleInformation(reinterpret_cast<HANDLE>(socket), HANDLE_FLAG_INHERIT, 0);
  return static_cast<SocketHandle>(socket);
}

// A new socket, which no child process inherits even when the host makes one at this moment; before
// Windows 7 SP1, which knows no such sockets, it may.
SocketHandle Open(int type) {
  SOCKET socket =
      WSASocketW(AF_INET, type, 0, nullptr, 0, WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT);
  if (socket == INVALID_SOCKET && WSAGetLastError() == WSAEINVAL) {
    socket = WSASocketW(AF_INET, type, 0, nullptr, 0, WSA_FLAG_OVERLAPPED);
  }
  return Adopt(socket);
}

sockaddr_in AddressOf(std::uint32_t address, std::uint16_t port) {
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_port = htons(port);
  name.sin_addr.s_addr = address;
  return name;
}

enum WaitKind { WAIT_TO_READ, WAIT_TO_WRITE };

SocketWait WaitFor(SocketHandle socket, WaitKind kind, std::int32_t milliseconds) {
  fd_set set;
  set.fd_count = 1;
  set.fd_array[0] = SystemSocket(socket);
  // A connection that was refused is reported as an exception.
  fd_set exceptions = set;
  timeval timeout{};
  timeout.tv_sec = milliseconds / 1000;
  timeout.tv_usec = (milliseconds % 1000) * 1000;
  const int ready =
      select(0, kind == WAIT_TO_READ ? &set : nullptr, kind == WAIT_TO_WRITE ? &set : nullptr,
             kind == WAIT_TO_WRITE ? &exceptions : nullptr, &timeout);
  if (ready < 0) {
    return SOCKET_FAILED;
  }
  return ready == 0 ? SOCKET_TIMED_OUT : SOCKET_READY;
}

bool ChangeMembership(SocketHandle socket, int change, const GroupMembership& membership) {
  ip_mreq request{};
  request.imr_multiaddr.s_addr = membership.group;
  request.imr_interface.s_addr = membership.interface;
  return setsockopt(SystemSocket(socket), IPPROTO_IP, change,
                    reinterpret_cast<const char*>(&request), sizeof request) == 0;
}

}  // namespace

bool StartSockets() {
  WSADATA data{};
  return WSAStartup(MAKEWORD(2, 0), &data) == 0;
}

void EndSockets() {
  WSACleanup();
}

void PrepareSockets() {
  for (const SocketHandle socket : {OpenTcpSocket(), OpenUdpSocket()}) {
    if (socket != NO_SOCKET) {
      CloseSocket(socket);
    }
  }
}

SocketHandle OpenTcpSocket() {
  return Open(SOCK_STREAM);
}

void CloseSocket(SocketHandle socket) {
  closesocket(SystemSocket(socket));
}

void EndSocket(SocketHandle socket) {
  CloseSocket(socket);
}

void EndSending(SocketHandle socket) {
  shutdown(SystemSocket(socket), SD_SEND);
}

bool BindListeningPort(SocketHandle socket, std::uint16_t port) {
  const sockaddr_in name = AddressOf(htonl(INADDR_ANY), port);
  return bind(SystemSocket(socket), reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0;
}

std::int32_t BoundPort(SocketHandle socket) {
  sockaddr_in name{};
  int size = sizeof name;
  if (getsockname(SystemSocket(socket), reinterpret_cast<sockaddr*>(&name), &size) != 0) {
    return -1;
  }
  return ntohs(name.sin_port);
}

bool StartListening(SocketHandle socket, std::int32_t backlog) {
  return listen(SystemSocket(socket), backlog) == 0;
}

SocketHandle AcceptConnection(SocketHandle listening) {
  return Adopt(accept(SystemSocket(listening), nullptr, nullptr));
}

ConnectResult ConnectTo(SocketHandle socket, std::uint32_t address, std::uint16_t port,
                        std::int32_t milliseconds) {
  const sockaddr_in name = AddressOf(address, port);
  int error = 0;
  if (connect(SystemSocket(socket), reinterpret_cast<const sockaddr*>(&name), sizeof name) != 0) {
    error = WSAGetLastError();
  }
  if (error == WSAEWOULDBLOCK) {
    const SocketWait wait = WaitWritable(socket, milliseconds);
    if (wait != SOCKET_READY) {
      return wait == SOCKET_TIMED_OUT ? CONNECT_TIMED_OUT : CONNECT_FAILED;
    }
    int size = sizeof error;
    getsockopt(SystemSocket(socket), SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error), &size);
  }
  if (error == 0) {
    return CONNECT_DONE;
  }
  return error == WSAECONNREFUSED ? CONNECT_REFUSED : CONNECT_FAILED;
}

SocketWait WaitReadable(SocketHandle socket, std::int32_t milliseconds) {
  return WaitFor(socket, WAIT_TO_READ, milliseconds);
}

SocketWait WaitWritable(SocketHandle socket, std::int32_t milliseconds) {
  return WaitFor(socket, WAIT_TO_WRITE, milliseconds);
}

std::int32_t ReceiveBytes(SocketHandle socket, void* buffer, std::int32_t size) {
  const int count = recv(SystemSocket(socket), static_cast<char*>(buffer), size, 0);
  if (count < 0) {
    return WSAGetLastError() == WSAEWOULDBLOCK ? RECEIVE_NOTHING : -1;
  }
  return count;
}

// By select and not by peeking: Wine tells who peeks that nothing is there while another thread
// reads.
bool PeerMayHaveGone(SocketHandle socket) {
  return WaitFor(socket, WAIT_TO_READ, 0) != SOCKET_TIMED_OUT;
}

std::int32_t SendBytes(SocketHandle socket, const void* bytes, std::int32_t size) {
  const int count = send(SystemSocket(socket), static_cast<const char*>(bytes), size, 0);
  if (count < 0) {
    return WSAGetLastError() == WSAEWOULDBLOCK ? SEND_NO_ROOM : -1;
  }
  return count;
}

SocketHandle OpenUdpSocket() {
  return Open(SOCK_DGRAM);
}

bool BindDatagramPort(SocketHandle socket, std::uint32_t address, std::uint16_t port, bool shared) {
  const int on = 1;
  if (shared && setsockopt(SystemSocket(socket), SOL_SOCKET, SO_REUSEADDR,
                           reinterpret_cast<const char*>(&on), sizeof on) != 0) {
    return false;
  }
  const sockaddr_in name = AddressOf(address, port);
  return bind(SystemSocket(socket), reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0;
}

bool JoinGroup(SocketHandle socket, std::uint32_t group, GroupMembership* membership) {
  *membership = GroupMembership{group, INADDR_ANY};
  return ChangeMembership(socket, IP_ADD_MEMBERSHIP, *membership);
}

bool LeaveGroup(SocketHandle socket, const GroupMembership& membership) {
  return ChangeMembership(socket, IP_DROP_MEMBERSHIP, membership);
}

bool SendMulticastFrom(SocketHandle socket, std::uint32_t interfaceAddress) {
  in_addr name{};
  name.s_addr = interfaceAddress;
  const int on = 1;
  return setsockopt(SystemSocket(socket), IPPROTO_IP, IP_MULTICAST_IF,
                    reinterpret_cast<const char*>(&name), sizeof name) == 0 &&
         setsockopt(SystemSocket(socket), IPPROTO_IP, IP_MULTICAST_LOOP,
                    reinterpret_cast<const char*>(&on), sizeof on) == 0;
}

std::int32_t ReceiveDatagram(SocketHandle socket, void* buffer, std::int32_t size,
                             Endpoint* sender) {
  sockaddr_in name{};
  int nameSize = sizeof name;
  // A datagram that does not fit is an error here.
  const int length = recvfrom(SystemSocket(socket), static_cast<char*>(buffer), size, 0,
                              reinterpret_cast<sockaddr*>(&name), &nameSize);
  if (length < 0) {
    return WSAGetLastError() == WSAEWOULDBLOCK ? RECEIVE_NOTHING : -1;
  }
  *sender = Endpoint{name.sin_addr.s_addr, ntohs(name.sin_port)};
  return length;
}

bool SendDatagramTo(SocketHandle socket, const void* bytes, std::int32_t size,
                    const Endpoint& receiver) {
  const sockaddr_in name = AddressOf(receiver.address, receiver.port);
  return sendto(SystemSocket(socket), static_cast<const char*>(bytes), size, 0,
                reinterpret_cast<const sockaddr*>(&name), sizeof name) == size;
}

// Formatted here: inet_ntoa keeps its result once for each thread in memory of the system's, and
// inet_ntop is missing before Windows Vista.
void AddressToText(std::uint32_t address, char (&text)[ADDRESS_TEXT_SIZE]) {
  char* out = text;
  for (int shift = 0; shift < 32; shift += 8) {
    const unsigned number = (address >> shift) & 0xFFU;
    if (shift > 0) {
      *out++ = '.';
    }
    if (number >= 100) {
      *out++ = static_cast<char>('0' + number / 100);
    }
    if (number >= 10) {
      *out++ = static_cast<char>('0' + number / 10 % 10);
    }
    *out++ = static_cast<char>('0' + number % 10);
  }
  *out = '\0';
}

bool TextToAddress(const char* text, std::uint32_t* address) {
  std::uint32_t result = 0;
  for (int shift = 0; shift < 32; shift += 8) {
    if (shift > 0 && *text++ != '.') {
      return false;
    }
    unsigned number = 0;
    int digits = 0;
    for (; *text >= '0' && *text <= '9' && digits < 3; text++, digits++) {
      number = number * 10 + static_cast<unsigned>(*text - '0');
    }
    if (digits == 0 || number > 255) {
      return false;
    }
    result |= number << shift;
  }
  if (*text != '\0') {
    return false;
  }
  *address = result;
  return true;
}

}  // namespace zvqrn::platform
