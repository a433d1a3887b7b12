// Loading and unloading of the library.  The platform's entry point calls these two functions,
// which src/service/library_attach.cpp defines, once each: after the library has been loaded and
// before it is unloaded or the process ends.
#pragma once

namespace zvqrn::platform {

// False refuses the load, where the system lets a library do that.
bool OnLibraryLoad();

// `processEnds`: the process is ending; other threads may already be gone, so nothing waits for
// them.
void OnLibraryUnload(bool processEnds);

}  // namespace zvqrn::platform
