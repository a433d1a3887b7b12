#include "platform/entry.h"

// The C++ run-time's own registration, which ties a function to this library: std::atexit leaves
// that to its caller under the thread sanitiser, and would call into the library after its unload.
extern "C" int __cxa_atexit(void (*function)(void*), void* argument, void* library) noexcept;
extern "C" void* __dso_handle;

namespace {

bool processEnds = false;

void NoteProcessEnd(void* /*argument*/) {
  processEnds = true;
}

// A library cannot refuse to be loaded here; one that could not prepare itself answers every call
// with 0.
__attribute__((constructor)) void Load() {
  // At exit() the functions registered here run before any destructor of a library; when the
  // library is unloaded they run after its destructors.  So Unload can tell the two apart.
  __cxa_atexit(NoteProcessEnd, nullptr, &__dso_handle);
  zvqrn::platform::OnLibraryLoad();
}

__attribute__((destructor)) void Unload() {
  zvqrn::platform::OnLibraryUnload(processEnds);
}

}  // namespace
