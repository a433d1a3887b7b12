// TCP and UDP over IPv4 as the library needs them.  A socket handle is greater than 0; 0 and below
// mean "no socket".  Each handle has one owner, who closes it.  Any thread may call any function,
// but a socket is used by one thread at a time.
//
// No call waits unless it says so: connections are made non-blocking, and whoever wants to wait
// does so with WaitReadable or WaitWritable.
#pragma once

#include <cstdint>

namespace zvqrn::platform {

using SocketHandle = std::intptr_t;

constexpr SocketHandle NO_SOCKET = 0;

// Starts and ends the use of the system's socket library; calls are counted by the system.
bool StartSockets();
void EndSockets();

// Makes the first use of sockets, for which Windows loads parts of itself: called on a thread of
// the host's, so that no thread of the library has to load anything while the host unloads the
// library.  After StartSockets.
void PrepareSockets();

SocketHandle OpenTcpSocket();
void CloseSocket(SocketHandle socket);

// Ends a connection or a listening socket and closes it: also for a process that the host has
// forked, which holds the socket open too.
void EndSocket(SocketHandle socket);

// Tells the peer of a connection that nothing more will be sent, once all that was has gone out.
void EndSending(SocketHandle socket);

// Binds a listening socket to a port on every local address (0 = a port of the system's choice).
// False also when another program listens there.
bool BindListeningPort(SocketHandle socket, std::uint16_t port);

// The port to which a socket is bound, in host byte order; negative on failure.
std::int32_t BoundPort(SocketHandle socket);

bool StartListening(SocketHandle socket, std::int32_t backlog);

// Takes a connection that has arrived; NO_SOCKET when there is none.
SocketHandle AcceptConnection(SocketHandle listening);

// Connects to an address (network byte order) and port, waiting at most `milliseconds`.
enum ConnectResult : std::int32_t {
  CONNECT_DONE = 0,
  CONNECT_REFUSED = 1,
  CONNECT_TIMED_OUT = 2,
  CONNECT_FAILED = 3
};
ConnectResult ConnectTo(SocketHandle socket, std::uint32_t address, std::uint16_t port,
                        std::int32_t milliseconds);

enum SocketWait : std::int32_t { SOCKET_READY = 1, SOCKET_TIMED_OUT = 0, SOCKET_FAILED = -1 };

// Wait at most `milliseconds` for bytes, a connection or the end of the peer's stream; or for room
// to send.
SocketWait WaitReadable(SocketHandle socket, std::int32_t milliseconds);
SocketWait WaitWritable(SocketHandle socket, std::int32_t milliseconds);

// Receives at most `size` bytes: their count, 0 when the peer has closed its side, negative on an
// error, RECEIVE_NOTHING when nothing has arrived.
constexpr std::int32_t RECEIVE_NOTHING = -2;
std::int32_t ReceiveBytes(SocketHandle socket, void* buffer, std::int32_t size);

// True when the peer has ended its side or broken the connection off.  Windows tells that only when
// no byte of the peer's waits to be read: there it is also true while one does.  Another thread may
// be using the socket.
bool PeerMayHaveGone(SocketHandle socket);

// Sends as many of `size` bytes as the system takes at once: their count, negative on an error,
// SEND_NO_ROOM when it takes none.  A peer that has gone is an error, never a signal.
constexpr std::int32_t SEND_NO_ROOM = -2;
std::int32_t SendBytes(SocketHandle socket, const void* bytes, std::int32_t size);

// ---- Datagrams ------------------------------------------------------------------------------

SocketHandle OpenUdpSocket();

// Binds to a port on every local address (0 = a port of the system's choice) or, with `address`
// not 0, to that one.  With `shared`, others may be bound to the same port for multicast.
bool BindDatagramPort(SocketHandle socket, std::uint32_t address, std::uint16_t port, bool shared);

// A multicast group that a socket has joined, and where.
struct GroupMembership {
  std::uint32_t group;      // network byte order
  std::uint32_t interface;  // as the system numbers it; 0 = the system's choice
};

// Joins a group on the interface that the default route uses; without a default route under POSIX,
// on the one whose address the machine calls its own.  Fills in `membership`; false when the system
// refuses, or cannot say which interface that is.
bool JoinGroup(SocketHandle socket, std::uint32_t group, GroupMembership* membership);

// Leaves the group where it was joined; false when that interface is gone.
bool LeaveGroup(SocketHandle socket, const GroupMembership& membership);

// Chooses the interface, by its address, from which this socket's multicasts are sent, and lets
// them reach listeners on this machine too.
bool SendMulticastFrom(SocketHandle socket, std::uint32_t interfaceAddress);

// Where a datagram comes from or goes to.
struct Endpoint {
  std::uint32_t address;  // network byte order
  std::uint16_t port;     // host byte order
};

// Receives one datagram of at most `size` bytes: its length (which may be 0), negative on an
// error and when it is larger than `size`, RECEIVE_NOTHING when none has arrived.
std::int32_t ReceiveDatagram(SocketHandle socket, void* buffer, std::int32_t size,
                             Endpoint* sender);

// Sends one datagram; false when the system refuses it.
bool SendDatagramTo(SocketHandle socket, const void* bytes, std::int32_t size,
                    const Endpoint& receiver);

// ---- Addresses ------------------------------------------------------------------------------

// An IPv4 address (network byte order) as dotted text, and back; false for anything but four
// decimal numbers.
constexpr std::int32_t ADDRESS_TEXT_SIZE = 16;
void AddressToText(std::uint32_t address, char (&text)[ADDRESS_TEXT_SIZE]);
bool TextToAddress(const char* text, std::uint32_t* address);

}  // namespace zvqrn::platform
