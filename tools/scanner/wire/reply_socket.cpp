#include "scanner/wire/reply_socket.h"

#include <algorithm>
#include <string>
#include <vector>

#include "common/adapters.h"
#include "common/port_owner.h"
#include "scanner/wire/connection.h"

namespace zvqrn::scanner {

namespace {

constexpr unsigned LOOPBACK_FIRST_BYTE = 127;
constexpr unsigned GROUP_FIRST_BYTE = 224;
constexpr unsigned GROUP_LAST_BYTE = 239;

// The first byte of an address as it is written, which is the first in memory.
unsigned FirstByte(std::uint32_t address) {
  return *reinterpret_cast<const unsigned char*>(&address);
}

std::uint32_t AddressOf(const char* text) {
  std::uint32_t address = 0;
  platform::TextToAddress(text, &address);
  return address;
}

bool CanMulticast(const tools::Adapter& adapter) {
  return adapter.up && adapter.multicast && !adapter.loopback && adapter.address != 0;
}

std::uint32_t ChooseMulticastSource() {
  std::vector<tools::Adapter> adapters;
  tools::ListAdapters(&adapters);
  std::uint32_t first = 0;
  for (const tools::Adapter& adapter : adapters) {
    if (CanMulticast(adapter) && adapter.defaultRoute) {
      return adapter.address;
    }
    if (CanMulticast(adapter) && first == 0) {
      first = adapter.address;
    }
  }
  if (first == 0) {
    throw Failure(EXIT_LOCAL_TROUBLE, "no adapter of this machine is up and can multicast");
  }
  return first;
}

std::string Place(std::uint32_t address) {
  return "UDP port " + std::to_string(DISCOVERY_PORT) + " of " + tools::AddressText(address);
}

// Throws when a program holds the port at just this address: of two such sockets only one gets a
// datagram.  A service that holds it at every address is no hindrance: the system prefers the
// socket that is bound to the one.
void CheckNobodyHasAddress(std::uint32_t address) {
  std::vector<tools::PortOwner> owners;
  tools::FindPortOwners(tools::PORT_UDP, DISCOVERY_PORT, &owners);
  for (const tools::PortOwner& owner : owners) {
    if (!owner.ipv6 && owner.address == address) {
      throw Failure(EXIT_LOCAL_TROUBLE, Place(address) + ", where the replies come, is held by " +
                                            tools::OwnerText(owner) +
                                            "; ask from another address of this machine (--from)");
    }
  }
}

std::string WhyNotBound(std::uint32_t address) {
  if (!IsOwnAddress(address)) {
    return tools::AddressText(address) + " is no address of this machine";
  }
  std::string holders;
  std::vector<tools::PortOwner> owners;
  tools::FindPortOwners(tools::PORT_UDP, DISCOVERY_PORT, &owners);
  for (const tools::PortOwner& owner : owners) {
    holders += (holders.empty() ? " shares it with nobody: " : ", ") + tools::OwnerText(owner);
  }
  return Place(address) + ", where the replies come, cannot be had" +
         (holders.empty() ? std::string() : "; its holder" + holders);
}

}  // namespace

OwnedSocket::~OwnedSocket() {
  if (handle > platform::NO_SOCKET) {
    platform::CloseSocket(handle);
  }
}

SocketUse::SocketUse() {
  if (!platform::StartSockets()) {
    throw Failure(EXIT_LOCAL_TROUBLE, "this machine's network cannot be used");
  }
}

SocketUse::~SocketUse() {
  platform::EndSockets();
}

bool IsGroup(std::uint32_t address) {
  return FirstByte(address) >= GROUP_FIRST_BYTE && FirstByte(address) <= GROUP_LAST_BYTE;
}

// All of 127.0.0.0/8 is the machine's own, listed or not.
bool IsOwnAddress(std::uint32_t address) {
  std::vector<tools::Adapter> adapters;
  tools::ListAdapters(&adapters);
  return FirstByte(address) == LOOPBACK_FIRST_BYTE ||
         std::any_of(adapters.begin(), adapters.end(),
                     [&](const tools::Adapter& adapter) { return adapter.address == address; });
}

std::uint32_t ChooseSource(std::uint32_t to) {
  if (IsGroup(to)) {
    return ChooseMulticastSource();
  }
  if (IsOwnAddress(to)) {
    const std::uint32_t loopback = AddressOf("127.0.0.1");
    return to == loopback ? AddressOf("127.0.0.2") : loopback;
  }
  std::uint32_t source = 0;
  if (!tools::SourceAddressTowards(to, &source)) {
    throw Failure(EXIT_LOCAL_TROUBLE, "there is no way to " + tools::AddressText(to));
  }
  return source;
}

platform::SocketHandle OpenReplySocket(std::uint32_t address) {
  constexpr bool SHARED = true;
  CheckNobodyHasAddress(address);
  const platform::SocketHandle socket = platform::OpenUdpSocket();
  if (socket <= platform::NO_SOCKET) {
    throw Failure(EXIT_LOCAL_TROUBLE, "this machine gives no socket");
  }
  if (!platform::BindDatagramPort(socket, address, DISCOVERY_PORT, SHARED)) {
    platform::CloseSocket(socket);
    throw Failure(EXIT_LOCAL_TROUBLE, WhyNotBound(address));
  }
  return socket;
}

platform::SocketHandle OpenSourceSocket(std::uint32_t address, std::uint16_t port) {
  constexpr bool SHARED = true;
  const platform::SocketHandle socket = platform::OpenUdpSocket();
  if (socket <= platform::NO_SOCKET) {
    throw Failure(EXIT_LOCAL_TROUBLE, "this machine gives no socket");
  }
  if (!platform::BindDatagramPort(socket, address, port, !SHARED)) {
    platform::CloseSocket(socket);
    throw Failure(EXIT_LOCAL_TROUBLE, "cannot send from UDP port " + std::to_string(port) + " of " +
                                          tools::AddressText(address));
  }
  return socket;
}

}  // namespace zvqrn::scanner
