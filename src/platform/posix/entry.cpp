#include "platform/entry.h"

#include <dlfcn.h>

// The C++ run-time's own registration, which ties a function to this library: std::atexit leaves
// that to its caller under the thread sanitiser, and would call into the library after its unload.
extern "C" int __cxa_atexit(void (*function)(void*), void* argument, void* library) noexcept;
extern "C" void* __dso_handle;

namespace {

bool processEnds = false;
bool unloaded = false;

// At exit() this comes before any destructor of a library, and when the library is unloaded it
// comes after the library's own.
void NoteProcessEnd(void* /*argument*/) {
  if (unloaded) {
    return;
  }
  processEnds = true;
  // What the host has registered before the library was loaded comes after this, and may unload the
  // library.  Its threads go on to the last moment, so their code must stay.
  Dl_info own{};
  if (dladdr(&processEnds, &own) != 0 && own.dli_fname != nullptr) {
    dlopen(own.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
  }
}

// A library cannot refuse to be loaded here; one that could not prepare itself answers every call
// with 0.
__attribute__((constructor)) void Load() {
  __cxa_atexit(NoteProcessEnd, nullptr, &__dso_handle);
  zvqrn::platform::OnLibraryLoad();
}

__attribute__((destructor)) void Unload() {
  unloaded = true;
  zvqrn::platform::OnLibraryUnload(processEnds);
}

}  // namespace
