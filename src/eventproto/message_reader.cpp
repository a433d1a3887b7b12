#include "eventproto/message_reader.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "base/allocation.h"
#include "base/service_state.h"
#include "eventproto/message_head.h"
#include "platform/clock.h"

namespace zvqrn {
namespace {

// The bytes in hand.
struct Holding {
  OwnedBlock<char> bytes;
  std::int32_t capacity;
  std::int32_t held;
};

// Moves the leftover into a new buffer with room for a first receive.
bool BeginHolding(Holding* holding, OwnedBlock<char> leftover, std::int32_t leftoverLength) {
  holding->capacity = HEAD_LIMIT;
  while (holding->capacity < leftoverLength) {
    holding->capacity += HEAD_LIMIT;
  }
  holding->bytes.reset(NewBytes(holding->capacity));
  if (!holding->bytes) {
    return false;
  }
  if (leftover) {
    std::memcpy(holding->bytes.get(), leftover.get(), static_cast<std::size_t>(leftoverLength));
    holding->held = leftoverLength;
  }
  return true;
}

// Looks at the head in hand; `total` becomes the length of its message, which may be below the
// head's and even below 0 when Content-Length is negative, and stays 0 until the head is complete.
HeadState LookAtHead(const Holding& holding, std::int64_t* total) {
  HeadMeasure measure{};
  const HeadState state = MeasureHead(holding.bytes.get(), holding.held, &measure);
  *total = static_cast<std::int64_t>(measure.headLength) + measure.contentLength;
  return state;
}

// Makes room in a full buffer for more of a message of `total` bytes: as much again as has arrived,
// whatever was announced, so that the copies stay few however small the pieces are.  False when it
// can grow no further: at the limit, or when memory runs out; the buffer is as it was then.
bool GrowBody(Holding* holding, std::int64_t total) {
  const std::int64_t doubled = 2 * static_cast<std::int64_t>(holding->capacity);
  const auto wanted =
      static_cast<std::int32_t>(std::min<std::int64_t>({total, doubled, MESSAGE_LIMIT}));
  if (wanted <= holding->capacity) {
    return false;
  }
  char* larger = NewBytes(wanted);
  if (larger == nullptr) {
    return false;
  }
  std::memcpy(larger, holding->bytes.get(), static_cast<std::size_t>(holding->held));
  holding->bytes.reset(larger);
  holding->capacity = wanted;
  return true;
}

// Receives the rest of a body.  READ_DONE when it is complete or can grow no further.
ReadResult ReceiveBody(platform::SocketHandle socket, Holding* holding, std::int64_t total) {
  const std::int64_t deadline = platform::MonotonicMilliseconds() + BODY_TIME_LIMIT_MS;
  while (holding->held < total) {
    if (holding->held == holding->capacity && !GrowBody(holding, total)) {
      return READ_DONE;
    }
    const std::int64_t ask = std::min<std::int64_t>(total, holding->capacity) - holding->held;
    std::int32_t received = 0;
    const ReadResult result = ReceiveWithTimeout(socket, holding->bytes.get() + holding->held,
                                                 static_cast<std::int32_t>(ask), &received);
    if (result != READ_DONE) {
      return result;
    }
    holding->held += received;
    if (StopRequested() || platform::MonotonicMilliseconds() >= deadline) {
      return holding->held < total ? READ_TIMED_OUT : READ_DONE;
    }
  }
  return READ_DONE;
}

// Hands back the first `total` bytes as the message and the rest as the leftover; all bytes as the
// message when they cannot be split.
void HandBack(Holding* holding, std::int64_t total, char** message, std::int32_t* messageLength,
              char** leftover, std::int32_t* leftoverLength) {
  if (holding->held > total && total >= 0) {
    const auto first = static_cast<std::int32_t>(total);
    const std::int32_t rest = holding->held - first;
    OwnedBlock<char> head(NewBytes(std::max(first, 1)));
    OwnedBlock<char> tail(NewBytes(rest));
    if (head && tail) {
      std::memcpy(head.get(), holding->bytes.get(), static_cast<std::size_t>(first));
      std::memcpy(tail.get(), holding->bytes.get() + first, static_cast<std::size_t>(rest));
      *message = head.release();
      *messageLength = first;
      *leftover = tail.release();
      *leftoverLength = rest;
      return;
    }
  }
  *message = holding->bytes.release();
  *messageLength = holding->held;
}

}  // namespace

ReadResult ReceiveWithTimeout(platform::SocketHandle socket, char* buffer, std::int32_t length,
                              std::int32_t* received) {
  *received = 0;
  // The bytes are mostly there already, and a wait would tell no more than that.
  std::int32_t count = platform::ReceiveBytes(socket, buffer, length);
  if (count == platform::RECEIVE_NOTHING) {
    // A wait can be woken for bytes that turn out not to be there: then it goes on.
    const std::int64_t deadline = platform::MonotonicMilliseconds() + RECEIVE_TIMEOUT_MS;
    for (std::int64_t left = RECEIVE_TIMEOUT_MS; count == platform::RECEIVE_NOTHING;
         left = deadline - platform::MonotonicMilliseconds()) {
      const platform::SocketWait wait =
          left > 0 ? platform::WaitReadable(socket, static_cast<std::int32_t>(left))
                   : platform::SOCKET_TIMED_OUT;
      if (wait != platform::SOCKET_READY) {
        return wait == platform::SOCKET_TIMED_OUT ? READ_TIMED_OUT : READ_FAILED;
      }
      count = platform::ReceiveBytes(socket, buffer, length);
    }
  }
  if (count == 0) {
    return READ_CLOSED;
  }
  if (count < 0) {
    return READ_FAILED;
  }
  *received = count;
  return READ_DONE;
}

ReadResult ReadMessage(platform::SocketHandle socket, char** message, std::int32_t* messageLength,
                       char** leftover, std::int32_t* leftoverLength) {
  if (leftover == nullptr || leftoverLength == nullptr) {
    return READ_FAILED;
  }
  OwnedBlock<char> earlier(*leftover);
  const std::int32_t earlierLength = *leftoverLength;
  *leftover = nullptr;
  *leftoverLength = 0;
  if (message == nullptr || messageLength == nullptr) {
    return READ_FAILED;
  }
  std::free(*message);
  *message = nullptr;
  *messageLength = 0;
  if ((earlier != nullptr) != (earlierLength > 0)) {
    return READ_FAILED;
  }
  Holding holding{};
  if (!BeginHolding(&holding, std::move(earlier), earlierLength)) {
    return READ_FAILED;
  }

  ReadResult result = READ_DONE;
  std::int64_t total = 0;
  HeadState head = LookAtHead(holding, &total);
  // The bytes in hand leave room for more, because an unfinished head is shorter than the buffer.
  if (head == HEAD_UNFINISHED && holding.held < HEAD_LIMIT) {
    std::int32_t received = 0;
    result = ReceiveWithTimeout(socket, holding.bytes.get() + holding.held,
                                HEAD_LIMIT - holding.held, &received);
    holding.held += received;
    head = LookAtHead(holding, &total);
  }
  if (head == HEAD_COMPLETE) {
    result = ReceiveBody(socket, &holding, total);
  }
  if (result != READ_DONE && result != READ_TIMED_OUT) {
    return result;
  }
  HandBack(&holding, total, message, messageLength, leftover, leftoverLength);
  return result;
}

}  // namespace zvqrn
