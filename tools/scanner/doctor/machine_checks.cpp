#include <algorithm>
#include <set>
#include <string>

#include "common/machine_text.h"
#include "common/module_loader.h"
#include "common/port_owner.h"
#include "common/this_machine.h"
#include "common/utf8.h"
#include "platform/system.h"
#include "scanner/doctor/checks.h"
#include "scanner/doctor/firewall.h"
#include "scanner/wire/reply_socket.h"

namespace zvqrn::scanner {

namespace {

constexpr std::uint16_t EVENT_PORT = 2968;
#if defined(_WIN32)
constexpr char UTILITY_FILE[] = "DRAVLIB.dll";
constexpr char FIREWALL_COMMAND[] = "netsh advfirewall firewall show rule name=all dir=in";
#else
constexpr char UTILITY_FILE[] = "libDRAVLIB.so";
constexpr char FIREWALL_COMMAND[] = "as root: nft list ruleset, or iptables -L -n";
#endif

bool IsUsable(const tools::Adapter& adapter) {
  return adapter.up && !adapter.loopback && adapter.address != 0;
}

// The address that a machine gives itself when nobody leases it one: 169.254.*.*.
bool IsSelfAssigned(std::uint32_t address) {
  return tools::AddressText(address).rfind("169.254.", 0) == 0;
}

// Why the library chooses the address that it announces.
std::string WhyAnnounced(const tools::Adapter& adapter) {
#if defined(_WIN32)
  (void)adapter;
  return ", the first that the PC's name stands for";
#else
  return adapter.defaultRoute ? ", which has the default route"
                              : ", the first that is up, since none has the default route";
#endif
}

void ReportAnnouncedAdapter(Account* account, const tools::Adapter& adapter, bool hasDefaultRoute) {
  const std::string text = tools::AddressText(adapter.address) + " of " +
                           tools::EscapeUtf8(adapter.name) + WhyAnnounced(adapter);
  if (!adapter.up) {
    Report(account, "announced", VERDICT_PROBLEM, text + "; it is down", "no-address",
           "connect it, or remove its address");
  } else if (!adapter.multicast) {
    Report(account, "announced", VERDICT_PROBLEM, text + "; it cannot multicast", "wrong-adapter",
           "scanners find this PC only when they are told its address");
  } else if (hasDefaultRoute && !adapter.defaultRoute) {
    Report(account, "announced", VERDICT_WARNING, text + "; another has the default route",
           "wrong-adapter",
           "the service listens for multicasts there, and scanners there get an address that they "
           "may not reach");
  } else if (IsSelfAssigned(adapter.address)) {
    Report(account, "announced", VERDICT_WARNING, text + "; the PC gave it itself", "no-address",
           "no address was leased to it; see to the network's DHCP server");
  } else {
    Report(account, "announced", VERDICT_OK, text);
  }
}

// Compares it with the address that a scanner would reach.
void ReportTowardsScanner(Account* account, std::uint32_t scanner, const Patient& patient) {
  std::uint32_t source = 0;
  const std::string text = tools::AddressText(scanner);
  if (!tools::SourceAddressTowards(scanner, &source)) {
    Report(account, "scanner", VERDICT_PROBLEM, "there is no way to the scanner at " + text,
           "wrong-adapter", "connect this PC to the scanner's network");
  } else if (source != patient.address) {
    Report(account, "scanner", VERDICT_PROBLEM,
           "the scanner at " + text + " reaches this PC at " + tools::AddressText(source) +
               ", and is told " + tools::AddressText(patient.address),
           "wrong-adapter", "give the adapter towards the scanner the default route");
  } else {
    Report(account, "scanner", VERDICT_OK, "the way to " + text + " is by the announced address");
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

// Says who holds a port.
void ReportOwners(Account* account, const std::string& topic, bool told,
                  const std::vector<tools::PortOwner>& owners) {
  if (!told) {
    Report(account, topic, VERDICT_WARNING, "the system does not tell who holds it");
  } else if (owners.empty()) {
    Report(account, topic, VERDICT_WARNING, "free: no program listens there", "no-service",
           "start the host program");
  } else if (owners.size() > 1) {
    Report(account, topic, VERDICT_WARNING, ListOwners(owners), "port-taken",
           "what a scanner sends reaches one of them only; end the others");
  } else if (owners.front().address != 0) {
    Report(account, topic, VERDICT_WARNING, ListOwners(owners), "port-taken",
           "the service holds it at every address; this is another program");
  } else {
    Report(account, topic, VERDICT_OK, ListOwners(owners));
  }
}

// Looks for the library among what the holder of a port has loaded.
void FindLibraries(const std::vector<tools::PortOwner>& owners, Patient* patient) {
  for (const tools::PortOwner& owner : owners) {
    std::vector<std::string> modules;
    if (owner.processId == 0 || !tools::ListModules(owner.processId, &modules)) {
      continue;
    }
    patient->modulesKnown = true;
    const std::string library = tools::FindModulePath(modules, tools::SERVICE_LIBRARY_FILE);
    if (!library.empty()) {
      patient->libraryPath = library;
      patient->mayLoad = tools::IsOwnProcess(owner.processId);
      patient->utilityPath = tools::FindModulePath(modules, UTILITY_FILE);
      return;
    }
  }
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

void CheckAdapters(Account* account, Patient* patient) {
  if (!tools::ListAdapters(&patient->adapters)) {
    Report(account, "adapters", VERDICT_PROBLEM, "the system does not list its adapters");
    return;
  }
  std::set<std::uint32_t> usable;
  bool hasDefaultRoute = false;
  for (const tools::Adapter& adapter : patient->adapters) {
    PrintAdapter(account, adapter);
    if (IsUsable(adapter)) {
      usable.insert(adapter.address);
      hasDefaultRoute = hasDefaultRoute || adapter.defaultRoute;
    }
  }
  if (usable.empty()) {
    Report(account, "adapters", VERDICT_PROBLEM, "none is up with an IPv4 address, loopback aside",
           "no-address",
           "connect this PC to the scanner's network; a service that waits starts by itself then");
  } else if (!hasDefaultRoute) {
    Report(account, "adapters", VERDICT_WARNING, "none that is up has the default route",
           "no-default-route",
           "without it multicasts are heard on an adapter of the system's choice");
  } else if (usable.size() > 1) {
    Report(account, "adapters", VERDICT_WARNING,
           std::to_string(usable.size()) + " addresses that scanners might use", "wrong-adapter",
           "the service announces one of them and listens for multicasts on one adapter; "
           "--scanner ADDRESS says whether it is the right one");
  } else {
    Report(account, "adapters", VERDICT_OK, "one address that scanners can use");
  }
}

void CheckAnnouncedAddress(Account* account, std::uint32_t scanner, Patient* patient) {
  char hostName[platform::HOST_NAME_SIZE];
  std::uint32_t address = 0;
  if (!platform::ReadHostName(hostName) ||
      platform::FirstHostAddress(hostName, &address) != platform::HOST_ADDRESS_FOUND) {
    Report(account, "announced", VERDICT_PROBLEM, "the system names no address of this PC",
           "no-address", "see to its host name and its addresses");
    return;
  }
  const auto& adapters = patient->adapters;
  const auto found =
      std::find_if(adapters.begin(), adapters.end(),
                   [&](const tools::Adapter& adapter) { return adapter.address == address; });
  const std::string text = tools::AddressText(address);
  if (text.rfind("127.", 0) == 0) {
    Report(account, "announced", VERDICT_PROBLEM,
           "none: the PC's first address is " + text + ", which no scanner can reach", "no-address",
           "connect this PC to a network; a service that waits starts by itself then");
    return;
  }
  if (found == adapters.end()) {
    Report(account, "announced", VERDICT_PROBLEM,
           text + ", which the host name stands for, but which no adapter has", "no-address",
           "remove this PC's name from its hosts file, or correct it there");
    return;
  }
  patient->address = address;
  const bool hasDefaultRoute = std::any_of(
      adapters.begin(), adapters.end(),
      [](const tools::Adapter& adapter) { return IsUsable(adapter) && adapter.defaultRoute; });
  ReportAnnouncedAdapter(account, *found, hasDefaultRoute);
  if (scanner != 0) {
    ReportTowardsScanner(account, scanner, *patient);
  }
}

void CheckName(Account* account) {
  char name[platform::COMPUTER_NAME_SIZE] = {};
  if (!platform::ReadSystemComputerName(name) || name[0] == '\0') {
    Report(account, "name", VERDICT_PROBLEM, "the system gives this PC no name", "name",
           "give it one, or let the host set one (QRNSetPCName)");
    return;
  }
  const std::string text = tools::FromLibraryText(name);
  if (!tools::IsUtf8(text)) {
    Report(account, "name", VERDICT_PROBLEM,
           "'" + tools::EscapeUtf8(text) + "' cannot be written in UTF-8, as scanners want it",
           "name", "give the PC another name, or let the host set one (QRNSetPCName)");
  } else {
    Report(account, "name", VERDICT_OK,
           "'" + tools::EscapeUtf8(text) + "', unless the host sets another");
  }
}

void CheckPorts(Account* account, Patient* patient) {
  const bool udpTold = tools::FindPortOwners(tools::PORT_UDP, DISCOVERY_PORT, &patient->udpOwners);
  const bool tcpTold =
      tools::FindPortOwners(tools::PORT_TCP_LISTENING, EVENT_PORT, &patient->tcpOwners);
  const auto& udpOwners = patient->udpOwners;
  const auto& tcpOwners = patient->tcpOwners;
  ReportOwners(account, "UDP 2968", udpTold, udpOwners);
  ReportOwners(account, "TCP 2968", tcpTold, tcpOwners);
  FindLibraries(udpOwners, patient);
  FindLibraries(tcpOwners, patient);
  if (!udpOwners.empty() && !tcpOwners.empty() && !ShareProcess(udpOwners, tcpOwners)) {
    Report(account, "ports", VERDICT_PROBLEM, "TCP 2968 and UDP 2968 are held by two programs",
           "port-taken", "one of them keeps the service from starting; end it");
  } else if (patient->modulesKnown && patient->libraryPath.empty()) {
    Report(account, "ports", VERDICT_PROBLEM,
           ListOwners(udpOwners.empty() ? tcpOwners : udpOwners) + ", which has not loaded " +
               tools::SERVICE_LIBRARY_FILE,
           tcpOwners.empty() ? "udp-taken" : "port-taken",
           "another program keeps the service from starting; end it");
  } else if (!patient->libraryPath.empty()) {
    const std::string version = tools::ModuleVersion(patient->libraryPath);
    Report(account, "library", VERDICT_OK,
           "version " + (version.empty() ? "unknown" : version) + ", " +
               tools::EscapeUtf8(patient->libraryPath));
  }
}

void CheckFirewall(Account* account) {
  for (const std::string protocol : {"udp", "tcp"}) {
    const FirewallFinding finding = ReadFirewall(protocol);
    const std::string topic = "fw " + protocol;
    const std::string why = tools::EscapeUtf8(finding.why);
    switch (finding.verdict) {
      case FIREWALL_DROPS:
        Report(account, topic, VERDICT_PROBLEM, why, "firewall-" + protocol,
               "let " + protocol + " port 2968 in");
        break;
      case FIREWALL_ALLOWS:
        Report(account, topic, VERDICT_OK, why);
        break;
      case FIREWALL_NONE:
        Report(account, topic, VERDICT_OK, "no rule stands against port 2968");
        break;
      default:
        Report(account, topic, VERDICT_NOTE,
               why.empty() ? "not to be read by this user, or of an unknown kind"
                           : "not to be told by the port alone: " + why,
               "firewall-" + protocol, FIREWALL_COMMAND);
        break;
    }
  }
}

}  // namespace zvqrn::scanner
