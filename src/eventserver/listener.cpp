#include "eventserver/listener.h"

#include "base/service_state.h"
#include "eventserver/extra_connection.h"
#include "eventserver/main_connection.h"
#include "platform/socket.h"
#include "platform/thread.h"

namespace zvqrn {
namespace {

// Every wait for connections ends after this long, to look for a stop.
constexpr std::int32_t LISTENER_WAIT_MS = 300;

// Waits for the main connection's end with looks this far apart.
constexpr std::int32_t MAIN_CONNECTION_POLL_MS = 1;

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

// -1 when the lock cannot be acquired.
std::int32_t ReadConnectionState() {
  const LockScope scope(&service.connectionStateLock);
  return scope.Held() ? service.connectionState.load() : -1;
}

// False when the lock cannot be acquired.
bool ChangeConnectionState(ThreadStateValue value) {
  const LockScope scope(&service.connectionStateLock);
  if (scope.Held()) {
    service.connectionState.store(value);
  }
  return scope.Held();
}

// Takes a connection as the main one; false when the listener must stop.
bool AcceptMainConnection(platform::SocketHandle listening) {
  if (!ChangeConnectionState(THREAD_STARTING)) {
    return false;
  }
  const platform::SocketHandle socket = platform::AcceptConnection(listening);
  if (socket != platform::NO_SOCKET && StartMainConnection(socket)) {
    return true;
  }
  if (socket != platform::NO_SOCKET) {
    platform::EndSocket(socket);
  }
  // Also without the lock, or the listener's end would wait for a connection that nobody serves.
  WriteThreadState(&service.connectionState, &service.connectionStateLock, THREAD_IDLE);
  return true;
}

// One wait and what it brings; false when the listener must stop.
bool ServeOnce(platform::SocketHandle listening) {
  switch (platform::WaitReadable(listening, LISTENER_WAIT_MS)) {
    case platform::SOCKET_TIMED_OUT:
      return true;
    case platform::SOCKET_READY:
      break;
    default:
      return false;
  }
  const std::int32_t state = ReadConnectionState();
  if (state == THREAD_IDLE) {
    return AcceptMainConnection(listening);
  }
  return state >= 0 && AcceptExtraConnection(listening);
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
  platform::SocketHandle listening = platform::NO_SOCKET;
  {
    // Held over the set-up, so that the start sees only its outcome.
    const LockScope scope(&service.listenerStateLock);
    if (scope.Held()) {
      listening = CreateListeningSocket();
    }
    // Without its lock the listener fails as well: the start waits for the word.
    ReportSetUp(&service.listenerState, listening != platform::NO_SOCKET);
  }
  if (listening == platform::NO_SOCKET) {
    return;
  }
  while (!StopRequested() && ServeOnce(listening)) {
  }
  EndListener(listening);
  WriteThreadState(&service.listenerState, &service.listenerStateLock, THREAD_IDLE);
}

}  // namespace

bool StartListener() {
  return StartReportingThread(&ListenerThread, platform::STACK_FOR_LIBRARY, &service.listenerState,
                              &service.listenerStateLock);
}

}  // namespace zvqrn
