#include "eventserver/sending.h"

#include "base/allocation.h"
#include "base/service_state.h"
#include "eventproto/message_reader.h"
#include "eventproto/message_writer.h"
#include "eventproto/outgoing_message.h"
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
// their count, or less when the system took none without saying that there is no room; negative
// when sending failed or had to be given up.
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
  std::int32_t sent = 0;
  for (;;) {
    const std::int32_t count = SendWhole(socket, bytes.get() + sent, size - sent);
    if (count < 0) {
      return false;
    }
    sent += count;
    if (sent == size) {
      return true;
    }
    (*emptySends)++;
    if (*emptySends >= EMPTY_SEND_LIMIT) {
      return false;
    }
    platform::SleepMilliseconds(EMPTY_SEND_PAUSE_MS);
  }
}

}  // namespace

FlushResult FlushSendQueue(platform::SocketHandle socket) {
  if (socket <= platform::NO_SOCKET) {
    return FLUSH_FAILED;
  }
  std::int32_t emptySends = 0;
  FlushResult result = FLUSH_EMPTY;
  const ListNode* last = nullptr;
  for (bool more = true; more; result = FLUSH_SENT) {
    OwnedOutgoingMessage message;
    {
      const LockScope scope(&service.sendQueueLock);
      if (!scope.Held()) {
        return FLUSH_FAILED;
      }
      ListNode* head = service.sendQueue.head;
      if (head == nullptr) {
        return result;
      }
      // Messages queued from now on wait for the next flush, so that a busy host cannot keep this
      // thread from reading.
      last = last == nullptr ? service.sendQueue.tail : last;
      more = head != last;
      // Taken before it is sent: one that could not be taken afterwards would be sent again.
      message.reset(static_cast<OutgoingMessage*>(ListTake(&service.sendQueue, head)));
    }
    if (!SendMessageBytes(socket, *message, &emptySends)) {
      return FLUSH_FAILED;
    }
  }
  return result;
}

}  // namespace zvqrn
