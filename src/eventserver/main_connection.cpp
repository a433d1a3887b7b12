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

// The same while a stop waits for the host's callbacks, to look for their end.
constexpr std::int32_t STOP_LOOK_MS = 10;

// Once no callback runs, requests are answered for so long at most, by a stop that has begun; then
// what the scanner still sends is heard for so long at most, and dropped.
constexpr std::int64_t LATE_REQUESTS_MS = 250;
constexpr std::int32_t DRAIN_MS = 300;

// The connection, and what it can still do.
struct MainConnection {
  platform::SocketHandle socket;
  bool hears;   // false once the scanner has ended its side, or reading has failed
  bool speaks;  // false once a message has been broken off: what follows would be its rest
};

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
ProcessResult WaitAndProcess(platform::SocketHandle socket, std::int32_t milliseconds) {
  switch (platform::WaitReadableOrWoken(socket, service.connectionWaker, milliseconds)) {
    case platform::WAKER_SOCKET_READY:
      return ProcessIncoming(socket);
    case platform::WAKER_FAILED:
      return PROCESS_ENDED;
    default:
      AgeIncomingLeftover();
      return PROCESS_IDLE;
  }
}

// Serves the connection until it ends.
void ServeConnection(MainConnection* connection) {
  std::int64_t lastActivity = platform::MonotonicMilliseconds();
  while (!StopRequested()) {
    const ProcessResult processed = WaitAndProcess(connection->socket, CONNECTION_LOOK_MS);
    if (processed == PROCESS_ENDED) {
      connection->hears = false;
      return;
    }
    const FlushResult flushed = FlushSendQueue(connection->socket);
    if (flushed == FLUSH_FAILED) {
      connection->speaks = false;
      return;
    }
    const std::int64_t now = platform::MonotonicMilliseconds();
    if (processed == PROCESS_HANDLED || flushed == FLUSH_SENT) {
      lastActivity = now;
    } else if (now - lastActivity >= CONNECTION_IDLE_LIMIT_MS) {
      return;
    }
  }
}

// From here on the listener takes the place for one that will soon be free, and leaves the socket
// alone.  Also without the lock: the socket is about to be closed.
void GiveSocketUp() {
  const LockScope scope(&service.connectionStateLock);
  service.connectionSocket.store(platform::NO_SOCKET);
}

// While the service stops: goes on answering, "busy" now, as long as the host's callbacks run, and
// then what has arrived by that time.
void AnswerLateRequests(MainConnection* connection) {
  std::int64_t deadline = 0;
  bool more = true;
  while (more && connection->hears && connection->speaks) {
    const bool delivering = DeliveriesAtWork();
    if (!delivering && deadline == 0) {
      deadline = platform::MonotonicMilliseconds() + LATE_REQUESTS_MS;
      // A time of their own for the last answers, however long the callbacks took.
      service.sendDeadline = 0;
    }
    const ProcessResult processed =
        WaitAndProcess(connection->socket, delivering ? STOP_LOOK_MS : 0);
    connection->hears = processed != PROCESS_ENDED;
    connection->speaks = FlushSendQueue(connection->socket) != FLUSH_FAILED;
    more = delivering ||
           (processed == PROCESS_HANDLED && platform::MonotonicMilliseconds() < deadline);
  }
  if (deadline == 0) {
    // The scanner had ended its side before the last callback returned.
    service.sendDeadline = 0;
  }
}

// Tells the scanner that this was all, and drops what it still sends until it ends its side: a
// socket that is closed with bytes unread resets the connection, and the last answers are lost.
void EndSendingAndDrain(platform::SocketHandle socket) {
  platform::EndSending(socket);
  const std::int64_t deadline = platform::MonotonicMilliseconds() + DRAIN_MS;
  std::int32_t left = DRAIN_MS;
  while (left > 0 && platform::WaitReadable(socket, left) == platform::SOCKET_READY) {
    char dropped[4096];
    const std::int32_t count = platform::ReceiveBytes(socket, dropped, sizeof dropped);
    if (count <= 0 && count != platform::RECEIVE_NOTHING) {
      return;
    }
    left = static_cast<std::int32_t>(deadline - platform::MonotonicMilliseconds());
  }
}

// The host's callbacks are waited for before anything that they may use goes.  A stop sees to it
// that the scanner gets its answers; otherwise those that come now are dropped.
void EndMainConnection(MainConnection* connection) {
  if (StopRequested()) {
    AnswerLateRequests(connection);
  }
  WaitForDeliveries();
  DestroyDeliveryList();
  const bool stopping = StopRequested();
  if (stopping && connection->speaks) {
    connection->speaks = FlushSendQueue(connection->socket) != FLUSH_FAILED;
  }
  DestroyJobTableAndSendQueue();
  DropIncomingLeftover();
  if (stopping && connection->hears && connection->speaks) {
    EndSendingAndDrain(connection->socket);
  }
}

void MainConnectionThread(void* argument) {
  const auto socket = reinterpret_cast<platform::SocketHandle>(argument);
  const bool ready = SetUpMainConnection();
  MainConnection connection{socket, true, true};
  if (ready) {
    ServeConnection(&connection);
  }
  GiveSocketUp();
  if (ready) {
    EndMainConnection(&connection);
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
