#include "support/process.h"
// After the header above, whose words are macros in this one.
#include "common/windows_network.h"
// After both.
#include <psapi.h>
#include <tlhelp32.h>
#include <winternl.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

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

// From the list of the whole system: Wine says 0 when it is asked for the number of a process.
std::ptrdiff_t Handles() {
  constexpr auto ALL_HANDLES = static_cast<SYSTEM_INFORMATION_CLASS>(16);
  constexpr auto TOO_SHORT = static_cast<NTSTATUS>(0xC0000004);
  // The first holds the count as well.
  std::vector<SYSTEM_HANDLE_INFORMATION> list(512);
  NTSTATUS status = TOO_SHORT;
  while (status == TOO_SHORT) {
    list.resize(2 * list.size());
    const std::size_t size = list.size() * sizeof list[0];
    status = NtQuerySystemInformation(ALL_HANDLES, list.data(), static_cast<ULONG>(size), nullptr);
  }
  EXPECT_EQ(status, 0);
  const auto* const entries = list[0].Handle;
  // Windows keeps something else in the upper half of the field.
  const std::ptrdiff_t count =
      std::count_if(entries, entries + list[0].Count, [](const SYSTEM_HANDLE_ENTRY& entry) {
        return static_cast<WORD>(entry.OwnerPid) == static_cast<WORD>(GetCurrentProcessId());
      });
  EXPECT_GT(count, 0);
  return count;
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
