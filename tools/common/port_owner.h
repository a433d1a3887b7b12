// Which programs of this machine hold a port, as far as the system tells: another user's are shown
// without their names to whoever is not the administrator.  Used by quorin-scanner; any thread.
// The operating system shows through here only.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zvqrn::tools {

enum PortKind { PORT_TCP_LISTENING, PORT_UDP };

struct PortOwner {
  std::uint32_t address = 0;    // to which it is bound, network byte order; 0: to every address
  bool ipv6 = false;            // an IPv6 socket, which may serve IPv4 too
  std::uint32_t processId = 0;  // 0: the system does not tell
  std::string program;          // file name of the program; empty when the system does not tell
};

// Gives the sockets that hold `port`; false when the system does not tell.
bool FindPortOwners(PortKind kind, std::uint16_t port, std::vector<PortOwner>* owners);

// An owner in words: "quorin-host (process 4711)", "a program of another user".
std::string OwnerText(const PortOwner& owner);

}  // namespace zvqrn::tools
