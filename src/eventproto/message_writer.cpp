#include "eventproto/message_writer.h"

#include <algorithm>
#include <cstring>
#include <initializer_list>

#include "base/text.h"

namespace zvqrn {
namespace {

constexpr std::int32_t HEADER_BLOCK_STEP = 256;
constexpr std::int64_t SIZE_LIMIT = 0x7FFFFFFF;

void FreeOwnedMessage(EventMessage* message) {
  FreeMessage(message);
}
using OwnedMessage = Owned<EventMessage, FreeOwnedMessage>;

std::int64_t Length(const char* text) {
  return static_cast<std::int64_t>(std::strlen(text));
}

// Appends text to a buffer that has room for it.
struct Cursor {
  char* at;
};

void Put(Cursor* cursor, const char* bytes, std::int64_t length) {
  std::memcpy(cursor->at, bytes, static_cast<std::size_t>(length));
  cursor->at += length;
}

void PutText(Cursor* cursor, const char* text) {
  Put(cursor, text, Length(text));
}

// Makes room for `line` more bytes of headers, in steps of HEADER_BLOCK_STEP.
bool GrowHeaders(EventMessage* message, std::int32_t line) {
  const std::int32_t needed = message->headerLength + line;
  if (message->headerCapacity > needed) {
    return true;
  }
  std::int64_t capacity = message->headerCapacity;
  if (capacity < needed) {
    const std::int64_t shortfall = needed - capacity;
    capacity += (shortfall + HEADER_BLOCK_STEP - 1) / HEADER_BLOCK_STEP * HEADER_BLOCK_STEP;
  }
  char* headers = NewBytes(capacity);
  if (headers == nullptr) {
    return false;
  }
  if (message->headers != nullptr) {
    std::memcpy(headers, message->headers, static_cast<std::size_t>(message->headerLength));
    std::free(message->headers);
  }
  message->headers = headers;
  message->headerCapacity = static_cast<std::int32_t>(capacity);
  return true;
}

// The bytes of a message with this body.  A sum that no block can hold counts as the largest: no
// buffer is that large.
std::int32_t SizeWithBody(const EventMessage& message, std::int32_t bodyLength) {
  const std::int64_t size = static_cast<std::int64_t>(message.startLineLength) +
                            message.headerLength + std::max(bodyLength, 0) + 2;
  return static_cast<std::int32_t>(std::min(size, SIZE_LIMIT));
}

// Writes a message with this body; false when `size` bytes have no room for it.
bool WriteMessage(const EventMessage& message, const char* body, std::int32_t bodyLength, char* out,
                  std::int32_t size) {
  const std::int32_t needed = SizeWithBody(message, bodyLength);
  if (size < needed || needed == SIZE_LIMIT) {
    return false;
  }
  Cursor cursor{out};
  Put(&cursor, message.startLine, message.startLineLength);
  if (message.headerLength > 0) {
    Put(&cursor, message.headers, message.headerLength);
  }
  PutText(&cursor, "\r\n");
  if (bodyLength > 0) {
    Put(&cursor, body, bodyLength);
  }
  return true;
}

// Adds the headers of a message in the order of the protocol; those that a message does not have
// are left out.
bool AddProtocolHeaders(EventMessage* message, const OutgoingMessage& outgoing) {
  char length[DECIMAL_TEXT_SIZE] = "";
  if (outgoing.bodyLength > 0) {
    FormatDecimal(static_cast<std::uint32_t>(outgoing.bodyLength), length);
  }
  const char* subevent = "";
  if (outgoing.header.subevent == SUBEVENT_START) {
    subevent = SUBEVENT_WORD_START;
  } else if (outgoing.header.subevent == SUBEVENT_END) {
    subevent = SUBEVENT_WORD_END;
  }
  const bool isAnswer = outgoing.isAnswer != 0;
  const struct {
    bool present;
    const char* name;
    const char* value;
  } headers[] = {
      {isAnswer, HEADER_SERVER, SERVER_NAME},
      {true, HEADER_CONTENT_TYPE, "application/octet-stream"},
      {outgoing.bodyLength > 0, HEADER_CONTENT_LENGTH, length},
      {true, HEADER_PROTOCOL_NAME, PROTOCOL_NAME},
      {true, HEADER_PROTOCOL_VERSION, outgoing.header.protocolVersion},
      {isAnswer && *subevent != '\0', HEADER_SUBEVENT, subevent},
      {outgoing.header.uid[0] != '\0', HEADER_UID, outgoing.header.uid},
      {outgoing.parentUid[0] != '\0', HEADER_PARENT_UID, outgoing.parentUid},
      {isAnswer, HEADER_STATUS, outgoing.status},
  };
  for (const auto& header : headers) {
    if (header.present && AddHeader(message, header.name, header.value) != WRITE_DONE) {
      return false;
    }
  }
  return true;
}

}  // namespace

WriteResult CreateMessage(const char* first, const char* second, const char* third,
                          EventMessage** message) {
  if (message == nullptr) {
    return WRITE_BAD_ARGUMENT;
  }
  *message = nullptr;
  std::int64_t length = 4;  // two spaces, CR and LF
  for (const char* text : {first, second, third}) {
    if (text == nullptr || *text == '\0') {
      return WRITE_BAD_ARGUMENT;
    }
    length += Length(text);
  }
  if (length > SIZE_LIMIT) {
    return WRITE_BAD_ARGUMENT;
  }
  OwnedMessage made(NewRecord<EventMessage>());
  if (!made) {
    return WRITE_FAILED;
  }
  made->startLine = NewBytes(length + 1);
  if (made->startLine == nullptr) {
    return WRITE_FAILED;
  }
  made->startLineLength = static_cast<std::int32_t>(length);
  Cursor cursor{made->startLine};
  for (const char* piece : {first, " ", second, " ", third, "\r\n"}) {
    PutText(&cursor, piece);
  }
  *message = made.release();
  return WRITE_DONE;
}

WriteResult AddHeader(EventMessage* message, const char* name, const char* value) {
  if (message == nullptr || name == nullptr || value == nullptr) {
    return WRITE_BAD_ARGUMENT;
  }
  if (*name == '\0' || *value == '\0') {
    return WRITE_SKIPPED;
  }
  const std::int64_t line = Length(name) + Length(value) + 5;  // " : ", CR and LF
  if (message->headerLength + line + 2 >= SIZE_LIMIT ||
      !GrowHeaders(message, static_cast<std::int32_t>(line))) {
    return WRITE_FAILED;
  }
  Cursor cursor{message->headers + message->headerLength};
  for (const char* piece : {name, " : ", value, "\r\n"}) {
    PutText(&cursor, piece);
  }
  message->headerLength += static_cast<std::int32_t>(line);
  return WRITE_DONE;
}

WriteResult SetBody(EventMessage* message, const void* data, std::int32_t length) {
  if (message == nullptr || length < 0 || (data != nullptr) != (length > 0)) {
    return WRITE_BAD_ARGUMENT;
  }
  char* body = nullptr;
  if (data != nullptr) {
    body = NewBytes(static_cast<std::int64_t>(length) / 8 * 8 + 8);
    if (body == nullptr) {
      return WRITE_FAILED;
    }
    std::memcpy(body, data, static_cast<std::size_t>(length));
  }
  std::free(message->body);
  message->body = body;
  message->bodyLength = length;
  return WRITE_DONE;
}

std::int32_t MessageSize(const EventMessage* message) {
  if (message == nullptr) {
    return -1;
  }
  return SizeWithBody(*message, message->bodyLength);
}

WriteResult SerializeMessage(const EventMessage* message, char* out, std::int32_t size) {
  if (message == nullptr || out == nullptr || size < 1) {
    return WRITE_BAD_ARGUMENT;
  }
  return WriteMessage(*message, message->body, message->bodyLength, out, size) ? WRITE_DONE
                                                                               : WRITE_FAILED;
}

std::int32_t FreeMessage(EventMessage* message) {
  if (message == nullptr) {
    return -1;
  }
  std::free(message->startLine);
  std::free(message->headers);
  std::free(message->body);
  std::free(message);
  return 1;
}

std::int32_t BuildMessageBytes(const OutgoingMessage* outgoing, char** bytes, std::int32_t* size) {
  if (outgoing == nullptr || bytes == nullptr || size == nullptr) {
    return 0;
  }
  EventMessage* made = nullptr;
  const WriteResult created = outgoing->isAnswer == 0
                                  ? CreateMessage("POST", "/PushScan", "HTTP/1.0", &made)
                                  : CreateMessage("HTTP/1.0", "200", "OK", &made);
  const OwnedMessage message(made);
  if (created != WRITE_DONE || !AddProtocolHeaders(made, *outgoing)) {
    return 0;
  }
  // The outgoing message keeps its body until after this call, so the body needs no copy first.
  const std::int32_t needed = SizeWithBody(*made, outgoing->bodyLength);
  OwnedBlock<char> block(NewBytes(needed));
  if (!block || !WriteMessage(*made, outgoing->body, outgoing->bodyLength, block.get(), needed)) {
    return 0;
  }
  *bytes = block.release();
  *size = needed;
  return 1;
}

}  // namespace zvqrn
