#include "support/process.h"
// After the header above, whose words are macros in this one.
#include "common/windows_network.h"
// After both.
#include <psapi.h>
#include <tlhelp32.h>

namespace zvqrn::test {

const char* const SCANNER_ADDRESS = "127.0.0.1";

const char* const PRIVATE_STARTER = sizeof(void*) == 8
                                        ? "scripts/private_network.sh scripts/under_wine.sh x64"
                                        : "scripts/private_network.sh scripts/under_wine.sh x86";

const char* MulticastInterface(const char* /*address*/) {
  return "10.68.0.2";
}

std::ptrdiff_t Threads() {
  const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
  std::ptrdiff_t count = 0;
  THREADENTRY32 entry{};
  entry.dwSize = sizeof entry;
  for (BOOL more = Thread32First(snapshot, &entry); more != FALSE;
       more = Thread32Next(snapshot, &entry)) {
    count += entry.th32OwnerProcessID == GetCurrentProcessId() ? 1 : 0;
  }
  CloseHandle(snapshot);
  return count;
}

std::ptrdiff_t Handles() {
  DWORD count = 0;
  GetProcessHandleCount(GetCurrentProcess(), &count);
  return static_cast<std::ptrdiff_t>(count);
}

std::int64_t ResidentKilobytes() {
  PROCESS_MEMORY_COUNTERS counters{};
  K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters);
  return static_cast<std::int64_t>(counters.WorkingSetSize / 1024);
}

std::int64_t ProcessorMilliseconds() {
  FILETIME begun, ended, kernel, user;
  GetProcessTimes(GetCurrentProcess(), &begun, &ended, &kernel, &user);
  return (static_cast<std::int64_t>(kernel.dwLowDateTime) + user.dwLowDateTime) / 10000;
}

bool IsLoaded() {
  return GetModuleHandleA("ZVQRN.dll") != nullptr || GetModuleHandleA("DRAVLIB.dll") != nullptr;
}

void EndProcessAfter(int /*seconds*/, const char* /*what*/) {}

void RunCommand(const std::string& /*command*/) {}

}  // namespace zvqrn::test
