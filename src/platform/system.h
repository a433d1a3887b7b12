// What the library asks of the machine it runs on.  Any thread.
#pragma once

#include <cstdint>

namespace zvqrn::platform {

// The computer's NetBIOS name (at most 15 bytes and a NUL) into a buffer of 17 bytes; false when
// the system gives none.
constexpr std::int32_t COMPUTER_NAME_SIZE = 17;
bool ReadSystemComputerName(char (&buffer)[COMPUTER_NAME_SIZE]);

// The machine's host name, NUL-terminated; false when the system gives none or it does not fit.
constexpr std::int32_t HOST_NAME_SIZE = 256;
bool ReadHostName(char (&buffer)[HOST_NAME_SIZE]);

// The first of the machine's own IPv4 addresses (network byte order), the one that its host name
// resolves to; the loopback address when it has no other.
enum HostAddressResult : std::int32_t {
  HOST_ADDRESS_FOUND = 1,
  HOST_ADDRESS_NONE = 0,        // it has none at all
  HOST_ADDRESS_UNREADABLE = -1  // POSIX: descriptors or memory are short, so ask again later
};
HostAddressResult FirstHostAddress(const char* hostName, std::uint32_t* address);

// True when the system can tell of changes of its addresses: an NT system of major version 5 or
// higher under Windows, always under POSIX.
bool CanWatchAddresses();

// The calling process; a process that it forks has another one.
std::uint32_t CurrentProcessId();

// Writes a line to where the system collects debugging output: the debugger under Windows, the
// system's log at its lowest level under POSIX.
void WriteDebuggerLine(const char* line);

// A shared library of the machine, loaded by its plain name ("NAME.dll", "libNAME.so"); null when
// there is none.  The caller unloads it.
void* LoadModule(const char* name);
void UnloadModule(void* module);

// A function of a loaded module, or null.
using ModuleFunction = void (*)();
ModuleFunction FindModuleFunction(void* module, const char* function);

}  // namespace zvqrn::platform
