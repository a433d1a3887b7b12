#include "common/adapters.h"

#include <cstring>

#if defined(_WIN32)
#include "common/windows_network.h"
// After the header above.
#include <ws2tcpip.h>
#else
#include <ifaddrs.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <sstream>
#endif

namespace zvqrn::tools {

namespace {

int PrefixLength(std::uint32_t mask) {
  int length = 0;
  for (; mask != 0; mask &= mask - 1) {
    ++length;
  }
  return length;
}

#if defined(_WIN32)

using SystemSocket = SOCKET;
using AddressSize = int;

void CloseSystemSocket(SystemSocket socket) {
  closesocket(socket);
}

constexpr ULONG NO_INTERFACE = 0;

std::string Utf8(const wchar_t* text) {
  const int size = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
  if (size <= 1) {
    return {};
  }
  std::string utf8(static_cast<std::size_t>(size), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text, -1, utf8.data(), size, nullptr, nullptr);
  utf8.pop_back();
  return utf8;
}

// The system's tables grow between the question for their size and the question for them, so the
// size is asked again while it does not fit.
template <typename Ask>
bool FetchTable(std::vector<ULONG_PTR>* room, ULONG tooSmall, const Ask& ask) {
  ULONG size = 0;
  ULONG result = tooSmall;
  for (int tries = 0; tries < 5 && result == tooSmall; ++tries) {
    room->assign(size / sizeof(ULONG_PTR) + 1, 0);
    size = static_cast<ULONG>(room->size() * sizeof(ULONG_PTR));
    result = ask(room->data(), &size);
  }
  return result == NO_ERROR;
}

const MIB_IPFORWARDTABLE* FetchRoutes(std::vector<ULONG_PTR>* room) {
  const bool fetched = FetchTable(room, ERROR_INSUFFICIENT_BUFFER, [](void* table, ULONG* size) {
    return GetIpForwardTable(static_cast<MIB_IPFORWARDTABLE*>(table), size, FALSE);
  });
  return fetched ? reinterpret_cast<const MIB_IPFORWARDTABLE*>(room->data()) : nullptr;
}

ULONG DefaultRouteInterface() {
  std::vector<ULONG_PTR> room;
  const MIB_IPFORWARDTABLE* table = FetchRoutes(&room);
  const MIB_IPFORWARDROW* best = nullptr;
  for (DWORD i = 0; table != nullptr && i < table->dwNumEntries; ++i) {
    const MIB_IPFORWARDROW* row = table->table + i;
    if (row->dwForwardDest == 0 && row->dwForwardMask == 0 &&
        (best == nullptr || row->dwForwardMetric1 < best->dwForwardMetric1)) {
      best = row;
    }
  }
  return best == nullptr ? NO_INTERFACE : best->dwForwardIfIndex;
}

bool ReadRoutes(std::vector<Route>* routes) {
  std::vector<ULONG_PTR> room;
  const MIB_IPFORWARDTABLE* table = FetchRoutes(&room);
  for (DWORD i = 0; table != nullptr && i < table->dwNumEntries; ++i) {
    const MIB_IPFORWARDROW& row = table->table[i];
    routes->push_back({row.dwForwardDest, PrefixLength(row.dwForwardMask), row.dwForwardNextHop,
                       std::to_string(row.dwForwardIfIndex), row.dwForwardMetric1});
  }
  return table != nullptr;
}

#else

using SystemSocket = int;
using AddressSize = socklen_t;

void CloseSystemSocket(SystemSocket socket) {
  close(socket);
}

std::uint32_t AddressOf(const sockaddr* name) {
  sockaddr_in address{};
  std::memcpy(&address, name, sizeof address);
  return address.sin_addr.s_addr;
}

// The kernel lists one route a line: interface, destination, gateway, flags, reference count, use,
// metric, mask.
bool ReadRoutes(std::vector<Route>* routes) {
  std::ifstream file("/proc/net/route");
  std::string line;
  std::getline(file, line);
  while (std::getline(file, line)) {
    std::istringstream columns(line);
    Route route;
    std::string skipped;
    std::uint32_t mask = 0;
    columns >> route.adapter >> std::hex >> route.destination >> route.gateway >> skipped >>
        skipped >> skipped >> std::dec >> route.metric >> std::hex >> mask;
    if (columns) {
      route.prefixLength = PrefixLength(mask);
      routes->push_back(route);
    }
  }
  return file.eof();
}

std::string DefaultRouteInterface() {
  std::vector<Route> routes;
  ReadRoutes(&routes);
  const Route* best = nullptr;
  for (const Route& route : routes) {
    if (route.destination == 0 && route.prefixLength == 0 &&
        (best == nullptr || route.metric < best->metric)) {
      best = &route;
    }
  }
  return best == nullptr ? std::string() : best->adapter;
}

bool IsListed(const std::vector<Adapter>& adapters, const char* name) {
  for (const Adapter& adapter : adapters) {
    if (adapter.name == name) {
      return true;
    }
  }
  return false;
}

#endif

}  // namespace

#if defined(_WIN32)

bool ListAdapters(std::vector<Adapter>* adapters) {
  std::vector<ULONG_PTR> room;
  const bool fetched = FetchTable(&room, ERROR_BUFFER_OVERFLOW, [](void* list, ULONG* size) {
    return GetAdaptersAddresses(
        AF_INET, GAA_FLAG_SKIP_ANYCAST | GAA_FLAG_SKIP_MULTICAST | GAA_FLAG_SKIP_DNS_SERVER,
        nullptr, static_cast<IP_ADAPTER_ADDRESSES*>(list), size);
  });
  if (!fetched) {
    return false;
  }
  const ULONG defaultInterface = DefaultRouteInterface();
  const auto* entry = reinterpret_cast<const IP_ADAPTER_ADDRESSES*>(room.data());
  for (; entry != nullptr; entry = entry->Next) {
    Adapter adapter;
    adapter.name = Utf8(entry->FriendlyName);
    adapter.up = entry->OperStatus == IfOperStatusUp;
    adapter.loopback = entry->IfType == IF_TYPE_SOFTWARE_LOOPBACK;
    adapter.multicast = (entry->Flags & IP_ADAPTER_NO_MULTICAST) == 0;
    adapter.defaultRoute = defaultInterface != NO_INTERFACE && entry->IfIndex == defaultInterface;
    if (entry->FirstUnicastAddress == nullptr) {
      adapters->push_back(adapter);
    }
    for (const auto* unicast = entry->FirstUnicastAddress; unicast != nullptr;
         unicast = unicast->Next) {
      sockaddr_in name{};
      std::memcpy(&name, unicast->Address.lpSockaddr, sizeof name);
      adapter.address = name.sin_addr.s_addr;
      adapter.prefixLength = unicast->OnLinkPrefixLength;
      adapters->push_back(adapter);
    }
  }
  return true;
}

#else

bool ListAdapters(std::vector<Adapter>* adapters) {
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) {
    return false;
  }
  const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> release(list, freeifaddrs);
  const std::string defaultInterface = DefaultRouteInterface();
  const auto adapterOf = [&](const ifaddrs& entry) {
    Adapter adapter;
    adapter.name = entry.ifa_name;
    // Up and with a cable, or whatever stands for one.
    adapter.up = (entry.ifa_flags & IFF_UP) != 0 && (entry.ifa_flags & IFF_RUNNING) != 0;
    adapter.loopback = (entry.ifa_flags & IFF_LOOPBACK) != 0;
    adapter.multicast = (entry.ifa_flags & IFF_MULTICAST) != 0;
    adapter.defaultRoute = adapter.name == defaultInterface;
    return adapter;
  };
  for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
    if (entry->ifa_addr != nullptr && entry->ifa_addr->sa_family == AF_INET) {
      Adapter adapter = adapterOf(*entry);
      adapter.address = AddressOf(entry->ifa_addr);
      adapter.prefixLength =
          entry->ifa_netmask == nullptr ? 0 : PrefixLength(AddressOf(entry->ifa_netmask));
      adapters->push_back(adapter);
    }
  }
  // An adapter without an IPv4 address shows with its other entries only.
  for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
    if (!IsListed(*adapters, entry->ifa_name)) {
      adapters->push_back(adapterOf(*entry));
    }
  }
  return true;
}

#endif

// Connecting a datagram socket only chooses a route and the address that belongs to it.
bool SourceAddressTowards(std::uint32_t destination, std::uint32_t* source) {
  constexpr std::uint16_t ANY_PORT = 9;
  const SystemSocket socket = ::socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_port = htons(ANY_PORT);
  name.sin_addr.s_addr = destination;
  AddressSize size = sizeof name;
  const bool found = connect(socket, reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0 &&
                     getsockname(socket, reinterpret_cast<sockaddr*>(&name), &size) == 0;
  CloseSystemSocket(socket);
  *source = name.sin_addr.s_addr;
  return found;
}

bool ListRoutes(std::vector<Route>* routes) {
  return ReadRoutes(routes);
}

bool ResolveHost(const std::string& name, std::uint32_t* address) {
  if (platform::TextToAddress(name.c_str(), address)) {
    return true;
  }
  // What looks like an address and is none is a slip of the pen, and no name to be asked for.
  if (name.empty() || name.find_first_not_of("0123456789.") == std::string::npos ||
      !platform::StartSockets()) {
    return false;
  }
  addrinfo hints{};
  hints.ai_family = AF_INET;
  addrinfo* list = nullptr;
  const bool found = getaddrinfo(name.c_str(), nullptr, &hints, &list) == 0 && list != nullptr;
  if (found) {
    sockaddr_in first{};
    std::memcpy(&first, list->ai_addr, sizeof first);
    *address = first.sin_addr.s_addr;
    freeaddrinfo(list);
  }
  platform::EndSockets();
  return found;
}

bool BindSource(platform::SocketHandle socket, std::uint32_t address) {
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_addr.s_addr = address;
  return bind(static_cast<SystemSocket>(socket), reinterpret_cast<const sockaddr*>(&name),
              sizeof name) == 0;
}

bool BindListeningAddress(platform::SocketHandle socket, std::uint32_t address,
                          std::uint16_t port) {
  const int on = 1;
#if defined(_WIN32)
  const int option = SO_EXCLUSIVEADDRUSE;  // nobody else may take the port over
#else
  const int option = SO_REUSEADDR;  // connections of an earlier run may still be dying
#endif
  setsockopt(static_cast<SystemSocket>(socket), SOL_SOCKET, option,
             reinterpret_cast<const char*>(&on), sizeof on);
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_port = htons(port);
  name.sin_addr.s_addr = address;
  return bind(static_cast<SystemSocket>(socket), reinterpret_cast<const sockaddr*>(&name),
              sizeof name) == 0;
}

std::string AddressText(std::uint32_t address) {
  char text[platform::ADDRESS_TEXT_SIZE];
  platform::AddressToText(address, text);
  return text;
}

}  // namespace zvqrn::tools
