// Where a scanner gets its replies: UDP port 2968 of the address from which it asks.  Chooses that
// address when the user names none, and says why the port cannot be had.
#pragma once

#include <cstdint>

#include "platform/socket.h"

namespace zvqrn::scanner {

constexpr std::uint16_t DISCOVERY_PORT = 2968;

// Owns a socket.
class OwnedSocket {
 public:
  explicit OwnedSocket(platform::SocketHandle opened) : handle(opened) {}
  OwnedSocket(const OwnedSocket&) = delete;
  OwnedSocket& operator=(const OwnedSocket&) = delete;
  ~OwnedSocket();
  const platform::SocketHandle handle;
};

// The start and the end of the use of the system's sockets; throws when they cannot be used.
class SocketUse {
 public:
  SocketUse();
  SocketUse(const SocketUse&) = delete;
  SocketUse& operator=(const SocketUse&) = delete;
  ~SocketUse();
};

// True for an address of a multicast group.
bool IsGroup(std::uint32_t address);

// True for an address of this machine.
bool IsOwnAddress(std::uint32_t address);

// Gives the address from which to ask `to`: for a group, that of the adapter with the default
// route; for an address of this machine, a loopback address, since a reply socket at the PC's own
// address would take the requests that are meant for its service; else what the system chooses.
// Throws when there is none.
std::uint32_t ChooseSource(std::uint32_t to);

// Opens the socket that gets the replies at `address`; throws, saying who holds the port, when it
// would not get them all.
platform::SocketHandle OpenReplySocket(std::uint32_t address);

// Opens a socket that sends from `port` of `address` and does not get the replies.
platform::SocketHandle OpenSourceSocket(std::uint32_t address, std::uint16_t port);

}  // namespace zvqrn::scanner
