#include "platform/system.h"

#include <cstring>

#include "platform/windows/windows_headers.h"

namespace zvqrn::platform {

bool ReadSystemComputerName(char (&buffer)[COMPUTER_NAME_SIZE]) {
  memset(buffer, 0, sizeof buffer);
  DWORD size = sizeof buffer;
  return GetComputerNameA(buffer, &size) != FALSE;
}

bool ReadHostName(char (&buffer)[HOST_NAME_SIZE]) {
  memset(buffer, 0, sizeof buffer);
  return gethostname(buffer, sizeof buffer) == 0 && buffer[sizeof buffer - 1] == '\0';
}

HostAddressResult FirstHostAddress(const char* hostName, std::uint32_t* address) {
  const hostent* entry = gethostbyname(hostName);
  if (entry == nullptr || entry->h_addrtype != AF_INET || entry->h_length != sizeof *address ||
      entry->h_addr_list[0] == nullptr) {
    return HOST_ADDRESS_NONE;
  }
  memcpy(address, entry->h_addr_list[0], sizeof *address);
  return HOST_ADDRESS_FOUND;
}

bool CanWatchAddresses() {
  OSVERSIONINFOA version{};
  version.dwOSVersionInfoSize = sizeof version;
  return GetVersionExA(&version) != FALSE && version.dwPlatformId == VER_PLATFORM_WIN32_NT &&
         version.dwMajorVersion >= 5;
}

std::uint32_t CurrentProcessId() {
  return ::GetCurrentProcessId();
}

void WriteDebuggerLine(const char* line) {
  OutputDebugStringA(line);
}

// By plain name, so that the system's search order decides; it appends ".dll".
void* LoadModule(const char* name) {
  return reinterpret_cast<void*>(LoadLibraryA(name));
}

void UnloadModule(void* module) {
  FreeLibrary(static_cast<HMODULE>(module));
}

ModuleFunction FindModuleFunction(void* module, const char* function) {
  return reinterpret_cast<ModuleFunction>(
      reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(module), function)));
}

}  // namespace zvqrn::platform
