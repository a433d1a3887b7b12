#include <algorithm>
#include <set>
#include <string>

#include "common/port_owner.h"
#include "common/utf8.h"
#include "platform/system.h"
#include "scanner/doctor/checks.h"
#include "scanner/wire/reply_socket.h"

namespace zvqrn::scanner {

namespace {

constexpr std::uint16_t EVENT_PORT = 2968;

bool IsUsable(const tools::Adapter& adapter) {
  return adapter.up && !adapter.loopback && adapter.address != 0;
}

// The address that a machine gives itself when nobody leases it one: 169.254.*.*.
bool IsSelfAssigned(std::uint32_t address) {
  return tools::AddressText(address).rfind("169.254.", 0) == 0;
}

void ReportAnnouncedAdapter(Account* account, const tools::Adapter& adapter, bool hasDefaultRoute) {
  const std::string text =
      tools::AddressText(adapter.address) + " of " + tools::EscapeUtf8(adapter.name);
  if (!adapter.up) {
    Report(account, "announced", VERDICT_PROBLEM, text + ", which is down",
           "connect it, or remove its address");
  } else if (!adapter.multicast) {
    Report(account, "announced", VERDICT_PROBLEM, text + ", which cannot multicast",
           "scanners find this PC only when they are told its address");
  } else if (hasDefaultRoute && !adapter.defaultRoute) {
    Report(
        account, "announced", VERDICT_WARNING, text + ", not of the default route's adapter",
        "the service listens for multicasts on the default route's adapter; scanners there get an address that they may not reach");
  } else if (IsSelfAssigned(adapter.address)) {
    Report(account, "announced", VERDICT_WARNING, text + ", which the PC gave itself",
           "no address was leased to it; see to the network's DHCP server");
  } else {
    Report(account, "announced", VERDICT_OK, text);
  }
}

std::string PlaceText(const tools::PortOwner& owner) {
  return tools::OwnerText(owner) + (owner.ipv6 ? " over IPv6"
                                    : owner.address == 0
                                        ? " at every address"
                                        : " at " + tools::AddressText(owner.address));
}

std::string ListOwners(const std::vector<tools::PortOwner>& owners) {
  std::string list;
  for (const tools::PortOwner& owner : owners) {
    list += (list.empty() ? "held by " : " and by ") + PlaceText(owner);
  }
  return list;
}

// Gives who may serve scanners at the port.
std::vector<tools::PortOwner> CheckPort(Account* account, const std::string& topic,
                                        tools::PortKind kind, std::uint16_t port) {
  std::vector<tools::PortOwner> owners;
  if (!tools::FindPortOwners(kind, port, &owners)) {
    Report(account, topic, VERDICT_WARNING, "the system does not tell who holds it");
  } else if (owners.empty()) {
    Report(account, topic, VERDICT_WARNING, "free: no program listens there",
           "start the host program");
  } else if (owners.size() > 1) {
    Report(account, topic, VERDICT_WARNING, ListOwners(owners),
           "what a scanner sends reaches one of them only; end the others");
  } else if (owners.front().address != 0) {
    Report(account, topic, VERDICT_WARNING, ListOwners(owners),
           "the service holds it at every address; this is another program");
  } else {
    Report(account, topic, VERDICT_OK, ListOwners(owners));
  }
  return owners;
}

bool ShareProcess(const std::vector<tools::PortOwner>& left,
                  const std::vector<tools::PortOwner>& right) {
  return std::any_of(left.begin(), left.end(), [&](const tools::PortOwner& one) {
    return std::any_of(right.begin(), right.end(), [&](const tools::PortOwner& other) {
      // Nameless ones may be the same.
      return one.processId == 0 || other.processId == 0 || one.processId == other.processId;
    });
  });
}

}  // namespace

Adapters CheckAdapters(Account* account) {
  Adapters adapters;
  if (!tools::ListAdapters(&adapters)) {
    Report(account, "adapters", VERDICT_PROBLEM, "the system does not list its adapters");
    return adapters;
  }
  std::set<std::uint32_t> usable;
  bool hasDefaultRoute = false;
  for (const tools::Adapter& adapter : adapters) {
    PrintAdapter(*account, adapter);
    if (IsUsable(adapter)) {
      usable.insert(adapter.address);
      hasDefaultRoute = hasDefaultRoute || adapter.defaultRoute;
    }
  }
  if (usable.empty()) {
    Report(account, "adapters", VERDICT_PROBLEM, "none is up with an IPv4 address, loopback aside",
           "connect this PC to the scanner's network; a service that waits starts by itself then");
  } else if (!hasDefaultRoute) {
    Report(account, "adapters", VERDICT_WARNING, "none that is up has the default route",
           "without it multicasts are heard on an adapter of the system's choice");
  } else if (usable.size() > 1) {
    Report(
        account, "adapters", VERDICT_WARNING,
        std::to_string(usable.size()) + " addresses that scanners might use",
        "the service announces one of them and listens for multicasts on one adapter; the scanner must be in that network");
  } else {
    Report(account, "adapters", VERDICT_OK, "one address that scanners can use");
  }
  return adapters;
}

std::uint32_t CheckAnnouncedAddress(Account* account, const Adapters& adapters) {
  char hostName[platform::HOST_NAME_SIZE];
  std::uint32_t address = 0;
  if (!platform::ReadHostName(hostName) ||
      platform::FirstHostAddress(hostName, &address) != platform::HOST_ADDRESS_FOUND) {
    Report(account, "announced", VERDICT_PROBLEM, "the system names no address of this PC",
           "see to its host name and its addresses");
    return 0;
  }
  const auto found =
      std::find_if(adapters.begin(), adapters.end(),
                   [&](const tools::Adapter& adapter) { return adapter.address == address; });
  const std::string text = tools::AddressText(address);
  if (text.rfind("127.", 0) == 0) {
    Report(account, "announced", VERDICT_PROBLEM,
           "none: the PC's first address is " + text + ", which no scanner can reach",
           "connect this PC to a network; a service that waits starts by itself then");
    return 0;
  }
  if (found == adapters.end()) {
    Report(account, "announced", VERDICT_PROBLEM,
           text + ", which the host name stands for, but which no adapter has",
           "remove this PC's name from its hosts file, or correct it there");
    return 0;
  }
  const bool hasDefaultRoute = std::any_of(
      adapters.begin(), adapters.end(),
      [](const tools::Adapter& adapter) { return IsUsable(adapter) && adapter.defaultRoute; });
  ReportAnnouncedAdapter(account, *found, hasDefaultRoute);
  return address;
}

bool CheckPorts(Account* account) {
  const auto udpOwners = CheckPort(account, "UDP 2968", tools::PORT_UDP, DISCOVERY_PORT);
  const auto tcpOwners = CheckPort(account, "TCP 2968", tools::PORT_TCP_LISTENING, EVENT_PORT);
  if (!udpOwners.empty() && !tcpOwners.empty() && !ShareProcess(udpOwners, tcpOwners)) {
    Report(account, "ports", VERDICT_PROBLEM, "TCP 2968 and UDP 2968 are held by two programs",
           "one of them keeps the service from starting; end it");
  }
  return !udpOwners.empty();
}

}  // namespace zvqrn::scanner
