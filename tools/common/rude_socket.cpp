#include "common/rude_socket.h"

#if defined(_WIN32)
#include "common/windows_network.h"
#else
#include <sys/socket.h>
#endif

namespace zvqrn::tools {

namespace {

#if defined(_WIN32)
using SystemSocket = SOCKET;
#else
using SystemSocket = int;
#endif

}  // namespace

void BreakOffConnection(platform::SocketHandle socket) {
  linger atOnce{};
  atOnce.l_onoff = 1;
  setsockopt(static_cast<SystemSocket>(socket), SOL_SOCKET, SO_LINGER,
             reinterpret_cast<const char*>(&atOnce), sizeof atOnce);
  platform::CloseSocket(socket);
}

}  // namespace zvqrn::tools
