// The IPv4 side of this machine as the system tells it: adapters with their addresses, and the
// address from which it would send.  Used by quorin-scanner; any thread.  Addresses are in network
// byte order.  The operating system shows through here only.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/socket.h"

namespace zvqrn::tools {

// One address of an adapter; an adapter with several is listed several times, one without any once,
// with address 0.
struct Adapter {
  std::string name;  // as the system writes it; UTF-8 under Windows
  std::uint32_t address = 0;
  int prefixLength = 0;
  bool up = false;
  bool loopback = false;
  bool multicast = false;
  bool defaultRoute = false;  // the default route with the lowest metric uses it
};

// Gives every adapter in the system's order; false when the system does not tell.
bool ListAdapters(std::vector<Adapter>* adapters);

// Gives the address from which the system would send to `destination`; false when there is no way
// to it.  Sends nothing.
bool SourceAddressTowards(std::uint32_t destination, std::uint32_t* source);

// A way that packets take.
struct Route {
  std::uint32_t destination = 0;
  int prefixLength = 0;
  std::uint32_t gateway = 0;  // 0: straight
  std::string adapter;        // its name, or its number under Windows
  std::uint32_t metric = 0;
};

// Gives the ways that the system knows; false when it does not tell.
bool ListRoutes(std::vector<Route>* routes);

// Gives the IPv4 address of a host's name, or of an address's text; false when there is none.  May
// wait for the network's name servers.
bool ResolveHost(const std::string& name, std::uint32_t* address);

// Lets a connection that is to be made come from this address; false when it is not the machine's.
bool BindSource(platform::SocketHandle socket, std::uint32_t address);

// Lets a socket listen for connections to this address and port only (0: a port of the system's
// choice); false when the address is not the machine's, or another program listens there.
bool BindListeningAddress(platform::SocketHandle socket, std::uint32_t address, std::uint16_t port);

// An address as text.
std::string AddressText(std::uint32_t address);

}  // namespace zvqrn::tools
