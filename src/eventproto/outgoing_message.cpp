#include "eventproto/outgoing_message.h"

#include <cstring>

#include "base/text.h"

namespace zvqrn {

OutgoingMessage* MakeOutgoingMessage(platform::SocketHandle socket,
                                     const OutgoingContent& content) {
  const bool bodyGiven = content.body != nullptr;
  if (content.header == nullptr || content.status == nullptr ||
      bodyGiven != (content.bodyLength > 0)) {
    return nullptr;
  }
  OwnedOutgoingMessage message(NewRecord<OutgoingMessage>());
  if (!message) {
    return nullptr;
  }
  message->socket = socket;
  message->isAnswer = content.isAnswer;
  CopyBounded(message->status, content.status, STATUS_SIZE);
  // A host may hand in a record of its own, so its texts are not trusted to end.
  message->header = *content.header;
  message->header.uid[UID_SIZE - 1] = '\0';
  message->header.protocolVersion[VERSION_SIZE - 1] = '\0';
  if (bodyGiven) {
    message->body = NewBytes(static_cast<std::int64_t>(content.bodyLength) + 1);
    if (message->body == nullptr) {
      return nullptr;
    }
    std::memcpy(message->body, content.body, static_cast<std::size_t>(content.bodyLength));
    message->bodyLength = content.bodyLength;
  }
  if (content.parentUid != nullptr) {
    CopyBounded(message->parentUid, content.parentUid, UID_SIZE);
  }
  return message.release();
}

void ReleaseOutgoingMessage(OutgoingMessage* message) {
  std::free(message->body);
  std::free(message);
}

OutgoingContent AnswerWithoutBody(const EventHeader* header, const char* status,
                                  const char* parentUid) {
  return OutgoingContent{header, nullptr, 0, status, parentUid, 1};
}

}  // namespace zvqrn
