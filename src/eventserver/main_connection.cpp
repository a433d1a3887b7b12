#include "eventserver/main_connection.h"

#include "base/service_state.h"
#include "eventserver/connection_tables.h"
#include "eventserver/delivery.h"
#include "eventserver/dispatch.h"
#include "eventserver/sending.h"
#include "platform/clock.h"
#include "platform/thread.h"

namespace zvqrn {
namespace {

// Every wait between messages ends after this long, to look for a stop.
constexpr std::int32_t CONNECTION_LOOK_MS = 300;

void WriteConnectionState(ThreadStateValue value) {
  WriteThreadState(&service.connectionState, &service.connectionStateLock, value);
}

bool SetUpMainConnection() {
  DropIncomingLeftover();
  service.sendDeadline = 0;
  if (!CreateConnectionTables()) {
    return false;
  }
  WriteConnectionState(THREAD_RUNNING);
  return true;
}

// Waits for the scanner's bytes or for something to send, and handles what the scanner has sent.
ProcessResult WaitAndProcess(platform::SocketHandle socket) {
  switch (platform::WaitReadableOrWoken(socket, service.connectionWaker, CONNECTION_LOOK_MS)) {
    case platform::WAKER_SOCKET_READY:
      return ProcessIncoming(socket);
    case platform::WAKER_FAILED:
      return PROCESS_ENDED;
    default:
      AgeIncomingLeftover();
      return PROCESS_IDLE;
  }
}

// Serves the connection until it ends; false when it can carry no further answer.
bool ServeConnection(platform::SocketHandle socket) {
  std::int64_t lastActivity = platform::MonotonicMilliseconds();
  while (!StopRequested()) {
    const ProcessResult processed = WaitAndProcess(socket);
    if (processed == PROCESS_ENDED) {
      return false;
    }
    const FlushResult flushed = FlushSendQueue(socket);
    if (flushed == FLUSH_FAILED) {
      return false;
    }
    const std::int64_t now = platform::MonotonicMilliseconds();
    if (processed == PROCESS_HANDLED || flushed == FLUSH_SENT) {
      lastActivity = now;
    } else if (now - lastActivity >= CONNECTION_IDLE_LIMIT_MS) {
      return true;
    }
  }
  return true;
}

// From here on the listener takes the place for one that will soon be free, and leaves the socket
// alone.  Also without the lock: the socket is about to be closed.
void GiveSocketUp() {
  const LockScope scope(&service.connectionStateLock);
  service.connectionSocket.store(platform::NO_SOCKET);
}

// The host's callbacks are waited for before anything that they may use goes.
void EndMainConnection(platform::SocketHandle socket, bool usable) {
  WaitForDeliveries();
  DestroyDeliveryList();
  // Answers that the deliveries have queued still reach the scanner, unless a message was broken
  // off: what follows it would be taken for its rest.
  if (usable && StopRequested()) {
    FlushSendQueue(socket);
  }
  DestroyJobTableAndSendQueue();
  DropIncomingLeftover();
}

void MainConnectionThread(void* argument) {
  const auto socket = reinterpret_cast<platform::SocketHandle>(argument);
  const bool ready = SetUpMainConnection();
  const bool usable = ready && ServeConnection(socket);
  GiveSocketUp();
  if (ready) {
    EndMainConnection(socket, usable);
  }
  platform::EndSocket(socket);
  // The listener's end waits for this word.
  WriteConnectionState(THREAD_IDLE);
}

}  // namespace

bool StartMainConnection(platform::SocketHandle socket) {
  // It asks the utility library.
  return platform::StartThread(&MainConnectionThread, reinterpret_cast<void*>(socket),
                               platform::STACK_FOR_HOST_CALLBACKS) != 0;
}

}  // namespace zvqrn
