#include "eventserver/listener.h"

#include "base/service_state.h"
#include "eventserver/extra_connection.h"
#include "eventserver/main_connection.h"
#include "platform/clock.h"
#include "platform/socket.h"
#include "platform/thread.h"

namespace zvqrn {
namespace {

// Every wait for connections ends after this long, to look for a stop.
constexpr std::int32_t LISTENER_WAIT_MS = 300;

// Waits for the main connection's end with looks this far apart.
constexpr std::int32_t MAIN_CONNECTION_POLL_MS = 1;

// How long new connections wait, all together, for the end of one main connection that is just
// ending.  Its end mostly takes less than a millisecond, and on a PC that is overloaded a second or
// two; a callback of the host can hold it up for longer.
constexpr std::int64_t MAIN_CONNECTION_PATIENCE_MS = 5000;

// After an accept that failed though a connection has arrived: descriptors may have run out, and
// the connection stays where it is.  In short sleeps, to look for a stop.
constexpr std::int32_t ACCEPT_PAUSE_MS = 100;
constexpr std::int32_t ACCEPT_PAUSE_LOOK_MS = 10;

// The system may tell of a new connection before it tells of the end of the scanner's last one,
// which came in at the same moment.  So a place that looks taken is looked at again, a few times;
// then not for as long, lest connections that storm in have the listener do nothing else.
constexpr std::int32_t DOUBTING_LOOKS = 10;
constexpr std::int64_t DOUBTLESS_MS = std::int64_t{DOUBTING_LOOKS} * MAIN_CONNECTION_POLL_MS;

// The same for a place that was ending a moment ago, of the same patience.  While the connection's
// last bytes are read, Wine does not tell that they were the last, and on an overloaded PC for
// long.
constexpr std::int32_t DOUBTING_LOOKS_AT_END = 200;

// What the listener's thread works with.
struct Listener {
  platform::SocketHandle socket;
  std::int64_t patienceMs;  // what is left of it for the current main connection
  std::int64_t nextDoubt;   // not before this, in monotonic milliseconds
};

// Publishes the port that the socket is bound to.
bool PublishEventPort(platform::SocketHandle socket) {
  const std::int32_t port = platform::BoundPort(socket);
  const LockScope scope(&service.identityLock);
  if (port < 0 || !scope.Held()) {
    return false;
  }
  service.eventPort = static_cast<std::uint32_t>(port);
  return true;
}

// Makes what guards the connections.
bool CreateConnectionLocks() {
  if (!CreateServiceLock(&service.extraConnectionSlots, EXTRA_CONNECTION_LIMIT,
                         EXTRA_CONNECTION_LIMIT)) {
    return false;
  }
  if (!CreateServiceLock(&service.connectionStateLock, 1, 1)) {
    DestroyServiceLock(&service.extraConnectionSlots);
    return false;
  }
  WriteThreadState(&service.connectionState, &service.connectionStateLock, THREAD_IDLE);
  return true;
}

// The listening socket, or NO_SOCKET and nothing made.
platform::SocketHandle CreateListeningSocket() {
  const platform::SocketHandle socket = platform::OpenTcpSocket();
  if (socket == platform::NO_SOCKET) {
    return platform::NO_SOCKET;
  }
  if (platform::BindListeningPort(socket, EVENT_PORT) && PublishEventPort(socket) &&
      platform::StartListening(socket, LISTEN_BACKLOG) && CreateConnectionLocks()) {
    return socket;
  }
  platform::EndSocket(socket);
  return platform::NO_SOCKET;
}

// The main connection's place as a new connection finds it.
enum Place : std::int32_t {
  PLACE_FREE,
  PLACE_TAKEN,
  PLACE_ENDING,  // taken by a connection whose scanner has gone, or which the library is ending
  PLACE_UNKNOWN  // the lock cannot be acquired
};

Place LookAtPlace() {
  const LockScope scope(&service.connectionStateLock);
  if (!scope.Held()) {
    return PLACE_UNKNOWN;
  }
  if (service.connectionState.load() == THREAD_IDLE) {
    return PLACE_FREE;
  }
  // The lock keeps a socket that stands here from being closed.
  const platform::SocketHandle socket = service.connectionSocket.load();
  return socket == platform::NO_SOCKET || platform::PeerMayHaveGone(socket) ? PLACE_ENDING
                                                                            : PLACE_TAKEN;
}

// A scanner that closes its connection and makes a new one at once meets its own old one, whose
// thread has not come to its end yet: that end is waited for.
Place FindPlace(Listener* listener) {
  std::int64_t now = platform::MonotonicMilliseconds();
  const std::int64_t deadline = now + listener->patienceMs;
  Place place = LookAtPlace();
  const bool doubting = place == PLACE_TAKEN && now >= listener->nextDoubt;
  std::int32_t doubts = place == PLACE_ENDING ? DOUBTING_LOOKS_AT_END
                        : doubting            ? DOUBTING_LOOKS
                                              : 0;
  while (((place == PLACE_ENDING && now < deadline) || (place == PLACE_TAKEN && doubts-- > 0)) &&
         !StopRequested()) {
    platform::SleepMilliseconds(MAIN_CONNECTION_POLL_MS);
    now = platform::MonotonicMilliseconds();
    place = LookAtPlace();
  }
  listener->patienceMs = deadline - now;
  if (doubting && doubts < 0) {
    listener->nextDoubt = now + DOUBTLESS_MS;
  }
  return place;
}

// False when the lock cannot be acquired.
bool TakePlace(platform::SocketHandle socket) {
  const LockScope scope(&service.connectionStateLock);
  if (scope.Held()) {
    service.connectionState.store(THREAD_STARTING);
    service.connectionSocket.store(socket);
  }
  return scope.Held();
}

// Serves a connection as the main one; false when the listener must stop.
bool ServeMainConnection(Listener* listener, platform::SocketHandle socket) {
  if (!TakePlace(socket)) {
    platform::EndSocket(socket);
    return false;
  }
  listener->patienceMs = MAIN_CONNECTION_PATIENCE_MS;
  if (!StartMainConnection(socket)) {
    service.connectionSocket.store(platform::NO_SOCKET);
    platform::EndSocket(socket);
    // Also without the lock, or the listener's end would wait for a connection that nobody serves.
    WriteThreadState(&service.connectionState, &service.connectionStateLock, THREAD_IDLE);
  }
  return true;
}

void PauseAfterFailedAccept() {
  for (std::int32_t slept = 0; slept < ACCEPT_PAUSE_MS && !StopRequested();
       slept += ACCEPT_PAUSE_LOOK_MS) {
    platform::SleepMilliseconds(ACCEPT_PAUSE_LOOK_MS);
  }
}

// One wait and what it brings; false when the listener must stop.
bool ServeOnce(Listener* listener) {
  switch (platform::WaitReadable(listener->socket, LISTENER_WAIT_MS)) {
    case platform::SOCKET_TIMED_OUT:
      return true;
    case platform::SOCKET_READY:
      break;
    default:
      return false;
  }
  const platform::SocketHandle socket = platform::AcceptConnection(listener->socket);
  if (socket == platform::NO_SOCKET) {
    PauseAfterFailedAccept();
    return true;
  }
  switch (FindPlace(listener)) {
    case PLACE_FREE:
      return ServeMainConnection(listener, socket);
    case PLACE_UNKNOWN:
      platform::EndSocket(socket);
      return false;
    default:
      return ServeExtraConnection(socket);
  }
}

// Looks at the word without its lock: a main connection must be waited for even when the lock
// cannot be had.
void EndListener(platform::SocketHandle listening) {
  while (service.connectionState.load() != THREAD_IDLE) {
    platform::SleepMilliseconds(MAIN_CONNECTION_POLL_MS);
  }
  RetireExtraConnections();
  DestroyServiceLock(&service.connectionStateLock);
  platform::EndSocket(listening);
}

void ListenerThread(void* /*argument*/) {
  Listener listener{};
  {
    // Held over the set-up, so that the start sees only its outcome.
    const LockScope scope(&service.listenerStateLock);
    if (scope.Held()) {
      listener.socket = CreateListeningSocket();
    }
    // Without its lock the listener fails as well: the start waits for the word.
    ReportSetUp(&service.listenerState, listener.socket != platform::NO_SOCKET);
  }
  if (listener.socket == platform::NO_SOCKET) {
    return;
  }
  while (!StopRequested() && ServeOnce(&listener)) {
  }
  EndListener(listener.socket);
  WriteThreadState(&service.listenerState, &service.listenerStateLock, THREAD_IDLE);
}

}  // namespace

bool StartListener() {
  return StartReportingThread(&ListenerThread, platform::STACK_FOR_LIBRARY, &service.listenerState,
                              &service.listenerStateLock);
}

}  // namespace zvqrn
