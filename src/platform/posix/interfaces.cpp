#include "platform/posix/interfaces.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace zvqrn::platform {
namespace {

// True when the call that has just failed may succeed later.
bool IsShortage() {
  return errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS;
}

// The interface of the default route with the lowest metric, or an empty text; false when the
// system is short of what it takes to say.  The kernel lists one route a line: interface,
// destination, gateway, flags, use counts, metric, mask.
bool DefaultRouteInterface(char (&name)[IF_NAMESIZE]) {
  name[0] = '\0';
  const std::unique_ptr<FILE, int (*)(FILE*)> routes(fopen("/proc/net/route", "re"), fclose);
  if (!routes) {
    return !IsShortage();
  }
  unsigned long best = 0;
  char line[256];
  while (fgets(line, sizeof line, routes.get()) != nullptr) {
    char* rest = nullptr;
    const char* interface = strtok_r(line, "\t ", &rest);
    const char* columns[7] = {};
    for (const char*& column : columns) {
      column = strtok_r(nullptr, "\t ", &rest);
    }
    // columns: destination, gateway, flags, reference count, use, metric, mask
    if (interface == nullptr || columns[6] == nullptr || strcmp(columns[0], "00000000") != 0 ||
        strcmp(columns[6], "00000000") != 0) {
      continue;
    }
    const unsigned long metric = strtoul(columns[5], nullptr, 10);
    if (name[0] == '\0' || metric < best) {
      best = metric;
      snprintf(name, sizeof name, "%s", interface);
    }
  }
  return true;
}

bool IsLoopback(std::uint32_t address) {
  return (ntohl(address) >> 24) == 127;
}

// How well an interface serves: the default route's best, loopback least.
int Preference(const char* name, std::uint32_t address, const char* defaultRoute) {
  if (IsLoopback(address)) {
    return 1;
  }
  return strcmp(name, defaultRoute) == 0 ? 3 : 2;
}

}  // namespace

HostAddressResult FindOwnInterface(OwnInterface* own) {
  *own = OwnInterface{};
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) {
    return HOST_ADDRESS_UNREADABLE;
  }
  const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> release(list, freeifaddrs);
  char defaultRoute[IF_NAMESIZE];
  if (!DefaultRouteInterface(defaultRoute)) {
    return HOST_ADDRESS_UNREADABLE;
  }
  int best = 0;
  const char* bestName = nullptr;
  for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
    if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET ||
        (entry->ifa_flags & IFF_UP) == 0) {
      continue;
    }
    sockaddr_in name{};
    memcpy(&name, entry->ifa_addr, sizeof name);
    const int preference = Preference(entry->ifa_name, name.sin_addr.s_addr, defaultRoute);
    if (preference > best) {
      best = preference;
      bestName = entry->ifa_name;
      own->address = preference == 1 ? htonl(INADDR_LOOPBACK) : name.sin_addr.s_addr;
    }
  }
  if (bestName == nullptr) {
    return HOST_ADDRESS_NONE;
  }
  own->index = if_nametoindex(bestName);
  if (own->index == 0 && IsShortage()) {
    *own = OwnInterface{};
    return HOST_ADDRESS_UNREADABLE;
  }
  return HOST_ADDRESS_FOUND;
}

}  // namespace zvqrn::platform
