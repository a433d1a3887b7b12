// What a connection can be made to do that the library never does: for scanners that misbehave on
// purpose.  Any thread; a socket is used by one thread at a time.
#pragma once

#include "platform/socket.h"

namespace zvqrn::tools {

// Closes the socket with a reset: what is on its way is lost, and the peer gets an error.
void BreakOffConnection(platform::SocketHandle socket);

}  // namespace zvqrn::tools
