#include "eventserver/sending.h"

#include "base/allocation.h"
#include "base/service_state.h"
#include "eventproto/message_reader.h"
#include "eventproto/message_writer.h"
#include "platform/clock.h"
#include "platform/thread.h"

namespace zvqrn {
namespace {

// True when a send that began to stall at `stalledSince` must not be waited for any longer.
bool MustGiveUp(std::int64_t stalledSince) {
  const std::int64_t now = platform::MonotonicMilliseconds();
  if (!StopRequested()) {
    return now - stalledSince >= SEND_STALL_LIMIT_MS;
  }
  if (service.sendDeadline == 0) {
    service.sendDeadline = now + STOP_SEND_LIMIT_MS;
  }
  return now >= service.sendDeadline;
}

// Sends bytes as one blocking send would: goes on until the system has taken all of them.  Gives
// their count; 0 when the system took none without saying that there is no room; negative when
// sending failed or had to be given up.
std::int32_t SendWhole(platform::SocketHandle socket, const char* bytes, std::int32_t size) {
  std::int32_t sent = 0;
  std::int64_t stalledSince = platform::MonotonicMilliseconds();
  while (sent < size) {
    const std::int32_t count = platform::SendBytes(socket, bytes + sent, size - sent);
    if (count == 0) {
      return sent;
    }
    if (count < 0 && count != platform::SEND_NO_ROOM) {
      return count;
    }
    if (count > 0) {
      sent += count;
      stalledSince = platform::MonotonicMilliseconds();
    } else if (platform::WaitWritable(socket, RECEIVE_TIMEOUT_MS) == platform::SOCKET_FAILED) {
      return -1;
    }
    if (sent < size && MustGiveUp(stalledSince)) {
      return -1;
    }
  }
  return sent;
}

// Sends one message; `emptySends` counts over a whole flush.
bool SendMessageBytes(platform::SocketHandle socket, const OutgoingMessage& message,
                      std::int32_t* emptySends) {
  char* made = nullptr;
  std::int32_t size = 0;
  if (BuildMessageBytes(&message, &made, &size) != 1) {
    return false;
  }
  const OwnedBlock<char> bytes(made);
  for (;;) {
    const std::int32_t sent = SendWhole(socket, bytes.get(), size);
    if (sent != 0) {
      return sent > 0;
    }
    (*emptySends)++;
    if (*emptySends >= EMPTY_SEND_LIMIT) {
      return false;
    }
    platform::SleepMilliseconds(EMPTY_SEND_PAUSE_MS);
  }
}

// The first and the last node of the queue; false when the queue cannot be used.
bool LookIntoQueue(const ListNode** first, const ListNode** last) {
  const LockScope scope(&service.sendQueueLock);
  if (!scope.Held()) {
    return false;
  }
  *first = service.sendQueue.head;
  *last = service.sendQueue.tail;
  return true;
}

// Removes the head, which is what was last sent, and gives the new one.
const ListNode* RemoveHead() {
  const LockScope scope(&service.sendQueueLock);
  if (!scope.Held()) {
    return nullptr;
  }
  ListRemove(&service.sendQueue, service.sendQueue.head);
  return service.sendQueue.head;
}

}  // namespace

FlushResult FlushSendQueue(platform::SocketHandle socket) {
  const ListNode* node = nullptr;
  const ListNode* last = nullptr;
  if (socket <= platform::NO_SOCKET || !LookIntoQueue(&node, &last)) {
    return FLUSH_FAILED;
  }
  if (node == nullptr) {
    return FLUSH_EMPTY;
  }
  // Messages queued meanwhile wait for the next flush, so that a busy host cannot keep this thread
  // from reading.
  std::int32_t emptySends = 0;
  bool sent = true;
  bool more = true;
  while (sent && more) {
    sent = SendMessageBytes(socket, *static_cast<const OutgoingMessage*>(node->item), &emptySends);
    more = node != last;
    node = RemoveHead();
    more = more && node != nullptr;
  }
  return sent ? FLUSH_SENT : FLUSH_FAILED;
}

}  // namespace zvqrn
