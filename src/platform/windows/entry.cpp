#include "platform/entry.h"

#include "platform/windows/windows_headers.h"

// The loader lock is held here: nothing may wait for a thread to begin or to end.
extern "C" BOOL WINAPI DllMain(HINSTANCE /*instance*/, DWORD reason, LPVOID reserved) {
  switch (reason) {
    case DLL_PROCESS_ATTACH:
      return zvqrn::platform::OnLibraryLoad() ? TRUE : FALSE;
    case DLL_PROCESS_DETACH:
      zvqrn::platform::OnLibraryUnload(reserved != nullptr);
      return TRUE;
    default:
      return TRUE;
  }
}
