// The wish that a tool end, as a flag that its main loop looks at, so that it ends in order: it
// stops what it started and says how it went.  The operating system shows through here only.
#pragma once

namespace zvqrn::tools {

// From now on Ctrl-C, SIGTERM and a terminal or console that closes set the flag instead of ending
// the program; a second Ctrl-C or SIGTERM ends it at once.  When a Windows console closes, the
// system grants the program some seconds.
void WatchForInterrupt();

// True once one has come.
bool InterruptCame();

}  // namespace zvqrn::tools
