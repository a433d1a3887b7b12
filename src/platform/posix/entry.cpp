#include "platform/entry.h"

#include <cstdlib>

namespace {

bool processEnds = false;

void NoteProcessEnd() {
  processEnds = true;
}

// A library cannot refuse to be loaded here; one that could not prepare itself answers every call
// with 0.
__attribute__((constructor)) void Load() {
  // At exit() the functions registered here run before any destructor of a library; when the
  // library is unloaded they run after its destructors.  So Unload can tell the two apart.
  std::atexit(NoteProcessEnd);
  zvqrn::platform::OnLibraryLoad();
}

__attribute__((destructor)) void Unload() {
  zvqrn::platform::OnLibraryUnload(processEnds);
}

}  // namespace
