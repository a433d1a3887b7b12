#include "platform/waker.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>

namespace zvqrn::platform {

struct Waker {
  int descriptor;
  std::atomic<bool> pending;  // from a call of Wake until the waiter has noticed it
};

Waker* MakeWaker() {
  auto* waker = static_cast<Waker*>(std::calloc(1, sizeof(Waker)));
  if (waker == nullptr) {
    return nullptr;
  }
  waker->descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (waker->descriptor < 0) {
    std::free(waker);
    return nullptr;
  }
  return waker;
}

void CloseWaker(Waker* waker) {
  close(waker->descriptor);
  std::free(waker);
}

void Wake(Waker* waker) {
  if (!waker->pending.exchange(true)) {
    eventfd_write(waker->descriptor, 1);
  }
}

WakerWait WaitReadableOrWoken(SocketHandle socket, Waker* waker, std::int32_t milliseconds) {
  pollfd entries[] = {{static_cast<int>(socket), POLLIN, 0},
                      {waker == nullptr ? -1 : waker->descriptor, POLLIN, 0}};
  const int ready = poll(entries, 2, milliseconds);
  if (ready < 0) {
    // An interrupted wait counts as one that ran out: the caller looks around and waits again.
    return errno == EINTR ? WAKER_TIMED_OUT : WAKER_FAILED;
  }
  const bool woken = waker != nullptr && entries[1].revents != 0;
  if (woken) {
    // Emptied before it is unmarked: what is queued before a wake that comes between the two is
    // found by the caller, who looks after this call.
    eventfd_t count = 0;
    eventfd_read(waker->descriptor, &count);
    waker->pending.store(false);
  }
  if (entries[0].revents != 0) {
    return (entries[0].revents & POLLNVAL) != 0 ? WAKER_FAILED : WAKER_SOCKET_READY;
  }
  return woken ? WAKER_WOKEN : WAKER_TIMED_OUT;
}

}  // namespace zvqrn::platform
