#include "eventserver/extra_connection.h"

#include <cstring>

#include "base/allocation.h"
#include "base/service_state.h"
#include "base/text.h"
#include "eventproto/message_head.h"
#include "eventproto/message_reader.h"
#include "eventproto/message_writer.h"
#include "platform/clock.h"
#include "platform/thread.h"

namespace zvqrn {
namespace {

// Also when the listener has ended by itself: a stop finds it idle, and tells it nothing.
bool MustEnd() {
  return StopRequested() || service.listenerState.load() == THREAD_IDLE;
}

// Waits for the first bytes; false when the connection is to be closed instead.
bool WaitForFirstBytes(platform::SocketHandle socket) {
  const std::int64_t since = platform::MonotonicMilliseconds();
  while (!MustEnd()) {
    const platform::SocketWait wait = platform::WaitReadable(socket, RECEIVE_TIMEOUT_MS);
    if (wait != platform::SOCKET_TIMED_OUT) {
      return wait == platform::SOCKET_READY;
    }
    if (platform::MonotonicMilliseconds() - since >= EXTRA_CONNECTION_PATIENCE_MS) {
      return false;
    }
  }
  return false;
}

// Fills in uid and version of a request that deserves an answer.  The protocol's name may go on
// here, and nothing else of the request is looked at.
bool ReadRequestHeader(const char* bytes, std::int32_t length, EventHeader* header) {
  ParsedMessage* made = nullptr;
  ParseHead(bytes, length, &made);
  const OwnedParsedMessage parsed(made);
  const char* name = nullptr;
  const char* uid = nullptr;
  const char* version = nullptr;
  if (!parsed || parsed->kind != KIND_REQUEST ||
      FindHeader(parsed.get(), HEADER_PROTOCOL_NAME, &name) != 1 ||
      !BeginsIgnoringCase(name, PROTOCOL_NAME) || FindHeader(parsed.get(), HEADER_UID, &uid) != 1 ||
      std::strlen(uid) >= static_cast<std::size_t>(UID_SIZE) ||
      FindHeader(parsed.get(), HEADER_PROTOCOL_VERSION, &version) != 1) {
    return false;
  }
  CopyBounded(header->uid, uid, UID_SIZE);
  CopyBounded(header->protocolVersion, version, VERSION_SIZE);
  SelectAnswerVersion(header->protocolVersion);
  return true;
}

void AnswerBusy(platform::SocketHandle socket, const EventHeader& header) {
  const OwnedOutgoingMessage answer(
      MakeOutgoingMessage(socket, AnswerWithoutBody(&header, STATUS_BUSY, nullptr)));
  char* bytes = nullptr;
  std::int32_t size = 0;
  if (answer && BuildMessageBytes(answer.get(), &bytes, &size) == 1) {
    const OwnedBlock<char> owner(bytes);
    // A fresh connection has room for the whole answer; nobody waits for one that has not.
    platform::SendBytes(socket, bytes, size);
  }
}

// One receive, one message, one answer.
void AnswerOneMessage(platform::SocketHandle socket) {
  if (!WaitForFirstBytes(socket)) {
    return;
  }
  const OwnedBlock<char> buffer(NewBytes(HEAD_LIMIT));
  if (!buffer) {
    return;
  }
  const std::int32_t received = platform::ReceiveBytes(socket, buffer.get(), HEAD_LIMIT);
  EventHeader header{};
  if (received > 0 && ReadRequestHeader(buffer.get(), received, &header)) {
    AnswerBusy(socket, header);
  }
}

void ExtraConnectionThread(void* argument) {
  const auto socket = reinterpret_cast<platform::SocketHandle>(argument);
  AnswerOneMessage(socket);
  platform::EndSocket(socket);
  ReleaseServiceLock(&service.extraConnectionSlots);
}

}  // namespace

bool ServeExtraConnection(platform::SocketHandle socket) {
  const LockResult slot = TryAcquireServiceLock(&service.extraConnectionSlots);
  if (slot != LOCK_OBTAINED) {
    platform::EndSocket(socket);
    return slot == LOCK_EXHAUSTED;
  }
  if (platform::StartThread(&ExtraConnectionThread, reinterpret_cast<void*>(socket),
                            platform::STACK_FOR_LIBRARY) == 0) {
    platform::EndSocket(socket);
    ReleaseServiceLock(&service.extraConnectionSlots);
  }
  return true;
}

// Whoever holds all the counts knows that no extra connection is left to give one back.  This waits
// asleep: a connection may take the time of a whole wait for bytes to see the stop.
void RetireExtraConnections() {
  for (std::int32_t taken = 0; taken < EXTRA_CONNECTION_LIMIT;) {
    const LockResult slot = TryAcquireServiceLock(&service.extraConnectionSlots);
    if (slot == LOCK_FAILED) {
      // A slot left full would keep the next start from making its own.
      break;
    }
    if (slot == LOCK_OBTAINED) {
      taken++;
    } else {
      platform::SleepMilliseconds(1);
    }
  }
  DestroyHeldServiceLock(&service.extraConnectionSlots);
}

}  // namespace zvqrn
