#include "platform/system.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace zvqrn::platform {
namespace {

constexpr std::size_t NETBIOS_NAME_BYTES = 15;

// The interface of the default route with the lowest metric, or an empty text.  The kernel lists
// one route a line: interface, destination, gateway, flags, use counts, metric, mask.
void DefaultRouteInterface(char (&name)[IF_NAMESIZE]) {
  name[0] = '\0';
  const std::unique_ptr<FILE, int (*)(FILE*)> routes(fopen("/proc/net/route", "re"), fclose);
  if (!routes) {
    return;
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
}

bool IsLoopback(std::uint32_t address) {
  return (ntohl(address) >> 24) == 127;
}

// The folder, with its slash, of the file that this code was loaded from; false when unknown.
bool OwnFolder(char* folder, std::size_t size) {
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&LoadModule), &info) == 0 || info.dli_fname == nullptr) {
    return false;
  }
  const char* slash = strrchr(info.dli_fname, '/');
  if (slash == nullptr) {
    return false;
  }
  const auto length = static_cast<std::size_t>(slash + 1 - info.dli_fname);
  if (length >= size) {
    return false;
  }
  memcpy(folder, info.dli_fname, length);
  folder[length] = '\0';
  return true;
}

}  // namespace

// The host name's first label, cut to what a NetBIOS name holds, in capitals.
bool ReadSystemComputerName(char (&buffer)[COMPUTER_NAME_SIZE]) {
  char hostName[HOST_NAME_SIZE];
  if (!ReadHostName(hostName)) {
    return false;
  }
  memset(buffer, 0, sizeof buffer);
  for (std::size_t i = 0; i < NETBIOS_NAME_BYTES && hostName[i] != '\0' && hostName[i] != '.';
       i++) {
    const char letter = hostName[i];
    buffer[i] = letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
  }
  return buffer[0] != '\0';
}

bool ReadHostName(char (&buffer)[HOST_NAME_SIZE]) {
  memset(buffer, 0, sizeof buffer);
  return gethostname(buffer, sizeof buffer) == 0 && buffer[sizeof buffer - 1] == '\0';
}

// Callers mean the addresses that the machine has, which is what a host name resolves to under
// Windows; a hosts file here may say something else, so the interfaces are asked instead.  The
// interface of the default route comes first: scanners are reached through it.
bool FirstHostAddress(const char* /*hostName*/, std::uint32_t* address) {
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) {
    return false;
  }
  const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> release(list, freeifaddrs);
  char preferred[IF_NAMESIZE];
  DefaultRouteInterface(preferred);

  bool found = false;
  bool foundUsable = false;
  for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
    if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET ||
        (entry->ifa_flags & IFF_UP) == 0) {
      continue;
    }
    sockaddr_in name{};
    memcpy(&name, entry->ifa_addr, sizeof name);
    const std::uint32_t candidate = name.sin_addr.s_addr;
    const bool usable = !IsLoopback(candidate);
    if (usable && strcmp(entry->ifa_name, preferred) == 0) {
      *address = candidate;
      return true;
    }
    if (!found || (usable && !foundUsable)) {
      *address = candidate;
      found = true;
      foundUsable = usable;
    }
  }
  if (found && !foundUsable) {
    *address = htonl(INADDR_LOOPBACK);
  }
  return found;
}

// Looks beside the library first, as Windows does for a program's own folder, then where the
// system's loader looks.
void* LoadModule(const char* name) {
  constexpr std::size_t PATH_SIZE = 4096;
  const std::unique_ptr<char, void (*)(void*)> path(static_cast<char*>(calloc(1, PATH_SIZE)), free);
  if (!path) {
    return nullptr;
  }
  if (OwnFolder(path.get(), PATH_SIZE)) {
    const std::size_t used = strlen(path.get());
    const int length = snprintf(path.get() + used, PATH_SIZE - used, "lib%s.so", name);
    if (length > 0 && static_cast<std::size_t>(length) < PATH_SIZE - used) {
      void* module = dlopen(path.get(), RTLD_NOW | RTLD_LOCAL);
      if (module != nullptr) {
        return module;
      }
    }
  }
  snprintf(path.get(), PATH_SIZE, "lib%s.so", name);
  return dlopen(path.get(), RTLD_NOW | RTLD_LOCAL);
}

void UnloadModule(void* module) {
  dlclose(module);
}

ModuleFunction FindModuleFunction(void* module, const char* function) {
  return reinterpret_cast<ModuleFunction>(dlsym(module, function));
}

}  // namespace zvqrn::platform
