#include "common/this_machine.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>

#include "common/machine_text.h"
#include "common/text.h"

#if defined(_WIN32)
#include "platform/windows/windows_headers.h"
// After the header above.
#include <shellapi.h>
#include <tlhelp32.h>
#else
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>
#endif

namespace zvqrn::tools {

namespace {

constexpr std::size_t OUTPUT_LIMIT = std::size_t{1024} * 1024;

#if defined(_WIN32)

std::FILE* OpenPipe(const char* command) {
  return _popen((std::string(command) + " 2>nul").c_str(), "rb");
}

int ClosePipe(std::FILE* pipe) {
  return _pclose(pipe);
}

#else

std::FILE* OpenPipe(const char* command) {
  return popen((std::string(command) + " 2>/dev/null").c_str(), "r");
}

int ClosePipe(std::FILE* pipe) {
  return pclose(pipe);
}

#endif

}  // namespace

#if defined(_WIN32)

std::string SystemText() {
  // GetVersionEx says what the program was built for; the kernel's own library has the truth.
  using GetVersionFunction = LONG(WINAPI*)(OSVERSIONINFOW*);
  const auto getVersion = reinterpret_cast<GetVersionFunction>(reinterpret_cast<void (*)()>(
      GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "RtlGetVersion")));
  OSVERSIONINFOW version{};
  version.dwOSVersionInfoSize = sizeof version;
  if (getVersion == nullptr || getVersion(&version) != 0) {
    return "Windows";
  }
  return "Windows " + std::to_string(version.dwMajorVersion) + "." +
         std::to_string(version.dwMinorVersion) + "." + std::to_string(version.dwBuildNumber);
}

bool ListModules(std::uint32_t processId, std::vector<std::string>* paths) {
  HANDLE list = CreateToolhelp32Snapshot(TH32CS_SNAPMODULE | TH32CS_SNAPMODULE32, processId);
  if (list == INVALID_HANDLE_VALUE) {
    return false;
  }
  MODULEENTRY32W entry{};
  entry.dwSize = sizeof entry;
  for (BOOL more = Module32FirstW(list, &entry); more != FALSE;
       more = Module32NextW(list, &entry)) {
    paths->push_back(NarrowText(entry.szExePath));
  }
  CloseHandle(list);
  return !paths->empty();
}

namespace {

// Owns a handle of the system's.
struct CloseHandleOf {
  void operator()(void* handle) const { CloseHandle(handle); }
};
using OwnedHandle = std::unique_ptr<void, CloseHandleOf>;

// The user of a process and whether it has an administrator's rights; empty when the system does
// not tell.
std::string RightsOf(HANDLE process) {
  HANDLE opened = nullptr;
  if (OpenProcessToken(process, TOKEN_QUERY, &opened) == FALSE) {
    return {};
  }
  const OwnedHandle token(opened);
  DWORD size = 0;
  GetTokenInformation(opened, TokenUser, nullptr, 0, &size);
  std::vector<ULONG_PTR> room(size / sizeof(ULONG_PTR) + 1);
  TOKEN_ELEVATION elevation{};
  DWORD elevationSize = sizeof elevation;
  if (GetTokenInformation(opened, TokenUser, room.data(),
                          static_cast<DWORD>(room.size() * sizeof(ULONG_PTR)), &size) == FALSE ||
      GetTokenInformation(opened, TokenElevation, &elevation, sizeof elevation, &elevationSize) ==
          FALSE) {
    return {};
  }
  PSID user = reinterpret_cast<const TOKEN_USER*>(room.data())->User.Sid;
  return std::string(static_cast<const char*>(user), GetLengthSid(user)) +
         (elevation.TokenIsElevated != 0 ? "+" : "-");
}

}  // namespace

bool IsOwnProcess(std::uint32_t processId) {
  const OwnedHandle process(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, processId));
  const std::string rights = process == nullptr ? std::string() : RightsOf(process.get());
  return !rights.empty() && rights == RightsOf(GetCurrentProcess());
}

#else

bool IsOwnProcess(std::uint32_t processId) {
  struct stat entry {};
  return stat(("/proc/" + std::to_string(processId)).c_str(), &entry) == 0 &&
         entry.st_uid == geteuid();
}

std::string SystemText() {
  utsname names{};
  if (uname(&names) != 0) {
    return "unknown";
  }
  return std::string(names.sysname) + " " + names.release + " " + names.machine;
}

bool ListModules(std::uint32_t processId, std::vector<std::string>* paths) {
  std::ifstream maps("/proc/" + std::to_string(processId) + "/maps");
  std::string line;
  while (std::getline(maps, line)) {
    const std::size_t path = line.find('/');
    if (path != std::string::npos &&
        std::find(paths->begin(), paths->end(), line.substr(path)) == paths->end()) {
      paths->push_back(line.substr(path));
    }
  }
  return !paths->empty();
}

#endif

std::string FindModulePath(const std::vector<std::string>& paths, const std::string& file) {
  for (const std::string& path : paths) {
    const std::string name = TextOf(PathOf(path).filename());
    if (EqualsIgnoringCase(name, file) ||
        EqualsIgnoringCase(name.substr(0, file.size() + 1), file + ".")) {
      return path;
    }
  }
  return {};
}

bool RunCommand(const char* command, std::string* output) {
  std::FILE* pipe = OpenPipe(command);
  if (pipe == nullptr) {
    return false;
  }
  char block[4096];
  for (std::size_t count = 1; count > 0 && output->size() < OUTPUT_LIMIT;) {
    count = std::fread(block, 1, sizeof block, pipe);
    output->append(block, count);
  }
  return ClosePipe(pipe) == 0;
}

bool OpenInBrowser(const std::string& address) {
#if defined(_WIN32)
  constexpr INT_PTR LAST_ERROR_CODE = 32;
  const HINSTANCE result =
      ShellExecuteW(nullptr, L"open", WideText(address).c_str(), nullptr, nullptr, SW_SHOWNORMAL);
  return reinterpret_cast<INT_PTR>(result) > LAST_ERROR_CODE;
#else
  std::string output;
  // What goes wrong shows within a second; afterwards it is the browser that runs.
  const std::string command =
      "xdg-open '" + address +
      "' </dev/null >/dev/null 2>&1 & for i in 1 2 3 4 5 6 7 8 9 10; do sleep 0.1; kill -0 $! "
      "2>/dev/null || break; done; kill -0 $! 2>/dev/null || wait $!";
  return RunCommand(command.c_str(), &output);
#endif
}

}  // namespace zvqrn::tools
