#include "common/port_owner.h"

#include "common/text.h"
#include "common/utf8.h"

#if defined(_WIN32)
#include <cstring>

#include "common/windows_network.h"
#else
#include <charconv>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#endif

namespace zvqrn::tools {

namespace {

#if defined(_WIN32)

std::string ProgramOf(DWORD processId) {
  HANDLE process = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, processId);
  if (process == nullptr) {
    return {};
  }
  wchar_t path[MAX_PATH] = {};
  DWORD length = MAX_PATH;
  const BOOL known = QueryFullProcessImageNameW(process, 0, path, &length);
  CloseHandle(process);
  if (known == FALSE) {
    return {};
  }
  const wchar_t* slash = std::wcsrchr(path, L'\\');
  const wchar_t* name = slash == nullptr ? path : slash + 1;
  char utf8[MAX_PATH * 3] = {};
  WideCharToMultiByte(CP_UTF8, 0, name, -1, utf8, sizeof utf8 - 1, nullptr, nullptr);
  return utf8;
}

ULONG FetchOwners(PortKind kind, void* table, DWORD* size) {
  return kind == PORT_UDP
             ? GetExtendedUdpTable(table, size, FALSE, AF_INET, UDP_TABLE_OWNER_PID, 0)
             : GetExtendedTcpTable(table, size, FALSE, AF_INET, TCP_TABLE_OWNER_PID_LISTENER, 0);
}

// The rows of both tables name their columns alike.
template <typename Table>
void AddOwners(const void* table, std::uint16_t port, std::vector<PortOwner>* owners) {
  const auto* rows = static_cast<const Table*>(table);
  for (DWORD i = 0; i < rows->dwNumEntries; ++i) {
    const auto& row = rows->table[i];
    // The low half holds the port as it stands on the wire; the high half may hold anything.
    if (ntohs(static_cast<u_short>(row.dwLocalPort & 0xFFFFU)) == port) {
      owners->push_back({row.dwLocalAddr, false, row.dwOwningPid, ProgramOf(row.dwOwningPid)});
    }
  }
}

#else

constexpr char TCP_LISTENING[] = "0A";

// Sockets that hold the port, by the kernel's number for each.
using SocketOwners = std::map<std::string, PortOwner>;

bool ReadHex(const std::string& text, std::uint32_t* number) {
  const char* end = text.data() + text.size();
  const std::from_chars_result result = std::from_chars(text.data(), end, *number, 16);
  return result.ec == std::errc() && result.ptr == end;
}

// The kernel writes an address in the byte order that it has in memory, an IPv6 address as four
// such words.  Of these only the one for every address can concern IPv4.
bool ReadPlace(const std::string& text, std::uint16_t port, PortOwner* owner) {
  const std::size_t colon = text.find(':');
  std::uint32_t number = 0;
  if (colon == std::string::npos || !ReadHex(text.substr(colon + 1), &number) || number != port) {
    return false;
  }
  const std::string address = text.substr(0, colon);
  owner->ipv6 = address.size() > 8;
  if (owner->ipv6) {
    return address.find_first_not_of('0') == std::string::npos;
  }
  return ReadHex(address, &owner->address);
}

// One socket a line: number, local place, remote place, state, queues, timer, retransmissions,
// user, time-out, inode.
bool ReadTable(const std::string& path, PortKind kind, std::uint16_t port, SocketOwners* sockets) {
  std::ifstream table(path);
  std::string line;
  if (!std::getline(table, line)) {
    return false;
  }
  while (std::getline(table, line)) {
    std::istringstream columns(line);
    std::string skipped;
    std::string local;
    std::string state;
    std::string inode;
    columns >> skipped >> local >> skipped >> state >> skipped >> skipped >> skipped >> skipped >>
        skipped >> inode;
    PortOwner owner;
    if (columns && (kind == PORT_UDP || state == TCP_LISTENING) && ReadPlace(local, port, &owner)) {
      (*sockets)["socket:[" + inode + "]"] = owner;
    }
  }
  return true;
}

// Looks through the open files of one process for the sockets.
void NameOwners(const std::filesystem::path& process, std::uint32_t processId,
                SocketOwners* sockets) {
  std::error_code failed;
  const std::filesystem::directory_iterator end;
  std::filesystem::directory_iterator file(process / "fd", failed);
  for (; !failed && file != end; file.increment(failed)) {
    std::error_code gone;
    const auto found = sockets->find(std::filesystem::read_symlink(file->path(), gone).string());
    if (!gone && found != sockets->end()) {
      found->second.processId = processId;
      std::ifstream name(process / "comm");
      std::getline(name, found->second.program);
    }
  }
}

void NameOwners(SocketOwners* sockets) {
  std::error_code failed;
  const std::filesystem::directory_iterator end;
  std::filesystem::directory_iterator process("/proc", failed);
  for (; !failed && process != end; process.increment(failed)) {
    std::int32_t processId = 0;
    if (ParseNumber(process->path().filename().string(), &processId)) {
      NameOwners(process->path(), static_cast<std::uint32_t>(processId), sockets);
    }
  }
}

#endif

}  // namespace

#if defined(_WIN32)

bool FindPortOwners(PortKind kind, std::uint16_t port, std::vector<PortOwner>* owners) {
  std::vector<DWORD> room;
  DWORD size = 0;
  ULONG result = ERROR_INSUFFICIENT_BUFFER;
  // The table may grow between the question for its size and the question for it.
  for (int tries = 0; tries < 5 && result == ERROR_INSUFFICIENT_BUFFER; ++tries) {
    room.assign(size / sizeof(DWORD) + 1, 0);
    size = static_cast<DWORD>(room.size() * sizeof(DWORD));
    result = FetchOwners(kind, room.data(), &size);
  }
  if (result != NO_ERROR) {
    return false;
  }
  if (kind == PORT_UDP) {
    AddOwners<MIB_UDPTABLE_OWNER_PID>(room.data(), port, owners);
  } else {
    AddOwners<MIB_TCPTABLE_OWNER_PID>(room.data(), port, owners);
  }
  return true;
}

#else

bool FindPortOwners(PortKind kind, std::uint16_t port, std::vector<PortOwner>* owners) {
  const std::string table = kind == PORT_UDP ? "/proc/net/udp" : "/proc/net/tcp";
  SocketOwners sockets;
  if (!ReadTable(table, kind, port, &sockets)) {
    return false;
  }
  // A machine without IPv6 has no such table.
  ReadTable(table + "6", kind, port, &sockets);
  if (!sockets.empty()) {
    NameOwners(&sockets);
  }
  for (const auto& [socket, owner] : sockets) {
    owners->push_back(owner);
  }
  return true;
}

#endif

std::string OwnerText(const PortOwner& owner) {
  if (owner.processId == 0) {
    return "a program that the system does not name to this user";
  }
  const std::string name = owner.program.empty() ? "a program" : EscapeUtf8(owner.program);
  return name + " (process " + std::to_string(owner.processId) + ")";
}

}  // namespace zvqrn::tools
