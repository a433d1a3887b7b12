#include "platform/system.h"

#include <dlfcn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "platform/posix/interfaces.h"

namespace zvqrn::platform {
namespace {

constexpr std::size_t NETBIOS_NAME_BYTES = 15;

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
// Windows; a hosts file here may say something else, so the interfaces are asked instead.
HostAddressResult FirstHostAddress(const char* /*hostName*/, std::uint32_t* address) {
  OwnInterface own{};
  const HostAddressResult result = FindOwnInterface(&own);
  *address = own.address;
  return result;
}

bool CanWatchAddresses() {
  return true;
}

std::uint32_t CurrentProcessId() {
  return static_cast<std::uint32_t>(getpid());
}

// A datagram to the system's log, as syslog(3) would send it, but without touching what the host
// may have set up with openlog(3).
void WriteDebuggerLine(const char* line) {
  constexpr char PREFIX[] = "<7>ZVQRN: ";  // the lowest level
  char text[128];
  const int length = snprintf(text, sizeof text, "%s%s", PREFIX, line);
  sockaddr_un name{};
  name.sun_family = AF_UNIX;
  memcpy(name.sun_path, "/dev/log", sizeof "/dev/log");
  const int log = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (log < 0) {
    return;
  }
  const std::size_t size = std::min(static_cast<std::size_t>(length), sizeof text - 1);
  sendto(log, text, size, MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&name), sizeof name);
  close(log);
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
