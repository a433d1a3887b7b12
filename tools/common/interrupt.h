// Ctrl-C and SIGTERM as a flag that a tool's main loop looks at, so that a tool ends in order: it
// stops what it started and says how it went.
#pragma once

namespace zvqrn::tools {

// From now on Ctrl-C and SIGTERM set the flag instead of ending the program; a second one ends it
// at once.
void WatchForInterrupt();

// True once one has come.
bool InterruptCame();

}  // namespace zvqrn::tools
