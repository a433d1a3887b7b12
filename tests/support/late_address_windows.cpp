// Wine never tells of an address, so what the loaded library calls for one is replaced in its table
// of imports.

#include "support/late_address.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>

#include "common/windows_network.h"

namespace zvqrn::test {
namespace {

std::atomic<HANDLE> pendingEvent{nullptr};
std::atomic<bool> hasAddress{false};
std::atomic<std::int32_t> usesEnded{0};

DWORD WINAPI Notify(HANDLE* /*handle*/, OVERLAPPED* overlapped) {
  pendingEvent = overlapped->hEvent;
  return ERROR_IO_PENDING;
}

BOOL WINAPI CancelNotice(OVERLAPPED* overlapped) {
  pendingEvent = nullptr;
  return SetEvent(overlapped->hEvent);
}

hostent* WINAPI LookUp(const char* /*name*/) {
  static in_addr address;
  static char* list[] = {reinterpret_cast<char*>(&address), nullptr};
  static hostent entry{nullptr, nullptr, AF_INET, sizeof address, list};
  if (hasAddress) {
    Sleep(ADDRESS_NOTICE_MS);
  }
  address.s_addr = inet_addr(hasAddress ? "10.68.0.2" : "127.0.0.1");
  return &entry;
}

int WINAPI EndUse() {
  usesEnded++;
  return WSACleanup();
}

void ReplaceImport(unsigned char* library, const char* name, void* replacement) {
  const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(library);
  const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(library + dos->e_lfanew);
  const auto& directory = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  for (auto* from = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(library + directory.VirtualAddress);
       from->Name != 0; from++) {
    auto* slot = reinterpret_cast<IMAGE_THUNK_DATA*>(library + from->FirstThunk);
    for (auto* function = reinterpret_cast<IMAGE_THUNK_DATA*>(library + from->OriginalFirstThunk);
         function->u1.AddressOfData != 0; function++, slot++) {
      const auto* named =
          reinterpret_cast<IMAGE_IMPORT_BY_NAME*>(library + function->u1.AddressOfData);
      if (!IMAGE_SNAP_BY_ORDINAL(function->u1.Ordinal) &&
          std::strcmp(reinterpret_cast<const char*>(named->Name), name) == 0) {
        DWORD before = 0;
        VirtualProtect(slot, sizeof *slot, PAGE_READWRITE, &before);
        std::memcpy(slot, &replacement, sizeof replacement);
        return;
      }
    }
  }
  ADD_FAILURE() << "the library does not import " << name;
}

}  // namespace

void TakeAddress() {
  hasAddress = false;
  auto* library = reinterpret_cast<unsigned char*>(GetModuleHandleA("ZVQRN.dll"));
  ReplaceImport(library, "NotifyAddrChange", reinterpret_cast<void*>(&Notify));
  ReplaceImport(library, "CancelIPChangeNotify", reinterpret_cast<void*>(&CancelNotice));
  ReplaceImport(library, "gethostbyname", reinterpret_cast<void*>(&LookUp));
  ReplaceImport(library, "WSACleanup", reinterpret_cast<void*>(&EndUse));
}

void GiveAddress() {
  hasAddress = true;
  if (pendingEvent.load() != nullptr) {
    SetEvent(pendingEvent);
  }
}

std::int32_t SocketUsesEnded() {
  return usesEnded;
}

}  // namespace zvqrn::test
