#include "platform/waker.h"

#include <atomic>
#include <cstdlib>

#include "platform/windows/windows_headers.h"

namespace zvqrn::platform {

// select takes sockets only, so the news is a datagram that a loopback socket sends to itself.
// Being connected to its own address, it hears nobody else.
struct Waker {
  SOCKET socket;
  std::atomic<bool> pending;  // from a call of Wake until the waiter has noticed it
};

namespace {

// Connects a fresh datagram socket to itself.
bool ConnectToSelf(SOCKET socket) {
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  int size = sizeof name;
  return bind(socket, reinterpret_cast<const sockaddr*>(&name), size) == 0 &&
         getsockname(socket, reinterpret_cast<sockaddr*>(&name), &size) == 0 &&
         connect(socket, reinterpret_cast<const sockaddr*>(&name), size) == 0;
}

}  // namespace

Waker* MakeWaker() {
  auto* waker = static_cast<Waker*>(std::calloc(1, sizeof(Waker)));
  if (waker == nullptr) {
    return nullptr;
  }
  const SocketHandle socket = OpenUdpSocket();
  waker->socket = static_cast<SOCKET>(socket);
  if (socket != NO_SOCKET && ConnectToSelf(waker->socket)) {
    return waker;
  }
  CloseWaker(waker);
  return nullptr;
}

void CloseWaker(Waker* waker) {
  if (waker->socket != static_cast<SOCKET>(NO_SOCKET)) {
    closesocket(waker->socket);
  }
  std::free(waker);
}

void Wake(Waker* waker) {
  const char word = 1;
  if (!waker->pending.exchange(true)) {
    send(waker->socket, &word, 1, 0);
  }
}

WakerWait WaitReadableOrWoken(SocketHandle socket, Waker* waker, std::int32_t milliseconds) {
  fd_set set;
  set.fd_count = 1;
  set.fd_array[0] = static_cast<SOCKET>(socket);
  if (waker != nullptr) {
    set.fd_array[set.fd_count++] = waker->socket;
  }
  timeval timeout{};
  timeout.tv_sec = milliseconds / 1000;
  timeout.tv_usec = (milliseconds % 1000) * 1000;
  if (select(0, &set, nullptr, nullptr, &timeout) < 0) {
    return WAKER_FAILED;
  }
  const bool ready = FD_ISSET(static_cast<SOCKET>(socket), &set) != 0;
  const bool woken = waker != nullptr && FD_ISSET(waker->socket, &set) != 0;
  if (woken) {
    char words[16];
    while (recv(waker->socket, words, sizeof words, 0) > 0) {
    }
  }
  if (waker != nullptr && (woken || !ready)) {
    // Emptied before it is unmarked: what is queued before a wake that comes between the two is
    // found by the caller, who looks after this call.  Also unmarked when the time ran out, in
    // case a datagram was lost.
    waker->pending.store(false);
  }
  if (ready) {
    return WAKER_SOCKET_READY;
  }
  return woken ? WAKER_WOKEN : WAKER_TIMED_OUT;
}

}  // namespace zvqrn::platform
