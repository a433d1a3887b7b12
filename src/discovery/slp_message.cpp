#include "discovery/slp_message.h"

#include <cstring>
#include <initializer_list>

#include "base/text.h"

namespace zvqrn {
namespace {

constexpr std::int32_t SLP_VERSION = 2;
constexpr std::int32_t FIXED_HEADER_LENGTH = 14;  // up to the language tag
constexpr std::int32_t SHORTEST_MESSAGE = 18;
constexpr std::int32_t SHORTEST_BODY = 10;
constexpr std::int32_t LAST_FUNCTION_ID = 11;
constexpr std::int32_t EXTENSION_HEADER_ROOM = 7;

constexpr std::uint32_t FLAG_OVERFLOW = 0x8000;
constexpr std::uint32_t FLAG_FRESH = 0x4000;
constexpr std::uint32_t FLAG_REQUEST_MULTICAST = 0x2000;
constexpr std::uint32_t FLAGS_RESERVED = 0x1FFF;

// Where reading stands; the bytes end at `end`.
struct Reader {
  const unsigned char* at;
  const unsigned char* end;
};

std::int32_t Left(const Reader& reader) {
  return static_cast<std::int32_t>(reader.end - reader.at);
}

// An unsigned big-endian number; the caller knows that its bytes are there.
std::int32_t ReadNumber(Reader* reader, std::int32_t byteCount) {
  std::int32_t number = 0;
  for (std::int32_t i = 0; i < byteCount; i++) {
    number = number << 8 | *reader->at++;
  }
  return number;
}

// A byte as a signed number.
std::int32_t ReadSignedByte(Reader* reader) {
  return static_cast<signed char>(ReadNumber(reader, 1));
}

// Copies the next `length` bytes, which are there.
char* CopyBytes(Reader* reader, std::int32_t length) {
  char* copy = NewBytes(static_cast<std::int64_t>(length) + 1);
  if (copy != nullptr) {
    std::memcpy(copy, reader->at, static_cast<std::size_t>(length));
    reader->at += length;
  }
  return copy;
}

// A 16-bit length and that many bytes.
SlpResult ReadString(Reader* reader, SlpText* text) {
  if (Left(*reader) < 2) {
    return SLP_ERR_MALFORMED;
  }
  const std::int32_t length = ReadNumber(reader, 2);
  if (Left(*reader) < length) {
    return SLP_ERR_MALFORMED;
  }
  if (length == 0) {
    return SLP_OK;
  }
  text->bytes = CopyBytes(reader, length);
  if (text->bytes == nullptr) {
    return SLP_ERR_NO_MEMORY;
  }
  text->length = length;
  return SLP_OK;
}

SlpResult ReadHeader(Reader* reader, SlpHeader* header) {
  const std::int32_t byteCount = Left(*reader);
  if (byteCount < SHORTEST_MESSAGE) {
    return SLP_ERR_MALFORMED;
  }
  header->version = ReadSignedByte(reader);
  header->functionId = ReadSignedByte(reader);
  header->length = ReadNumber(reader, 3);
  const auto flags = static_cast<std::uint32_t>(ReadNumber(reader, 2));
  header->overflow = (flags & FLAG_OVERFLOW) != 0 ? 1 : 0;
  header->fresh = (flags & FLAG_FRESH) != 0 ? 1 : 0;
  header->requestMulticast = (flags & FLAG_REQUEST_MULTICAST) != 0 ? 1 : 0;
  header->reserved = static_cast<std::int32_t>(flags & FLAGS_RESERVED);
  header->nextExtensionOffset = ReadNumber(reader, 3);
  header->xid = ReadNumber(reader, 2);
  header->languageTagLength = ReadNumber(reader, 2);
  if (header->functionId < 1 || header->functionId > LAST_FUNCTION_ID ||
      header->length != byteCount || header->languageTagLength > Left(*reader) ||
      header->nextExtensionOffset + EXTENSION_HEADER_ROOM > header->length) {
    return SLP_ERR_MALFORMED;
  }
  header->languageTag = CopyBytes(reader, header->languageTagLength);
  return header->languageTag != nullptr ? SLP_OK : SLP_ERR_NO_MEMORY;
}

// The SPI is not read, and neither is anything behind it.
SlpResult ReadAttrRqst(Reader* reader, AttrRqstBody* body) {
  if (Left(*reader) < SHORTEST_BODY) {
    return SLP_ERR_ARGUMENT;
  }
  for (SlpText* text : {&body->previousResponders, &body->url, &body->scopeList, &body->tagList}) {
    const SlpResult result = ReadString(reader, text);
    if (result != SLP_OK) {
      return result;
    }
  }
  return SLP_OK;
}

SlpResult ReadAttrRply(Reader* reader, AttrRplyBody* body) {
  if (Left(*reader) < SHORTEST_BODY) {
    return SLP_ERR_MALFORMED;
  }
  body->errorCode = ReadNumber(reader, 2);
  return body->errorCode != 0 ? SLP_OK : ReadString(reader, &body->attributeList);
}

SlpResult ReadBody(Reader* reader, SlpMessage* message) {
  if (message->header->functionId == SLP_ATTR_RQST) {
    auto* body = NewRecord<AttrRqstBody>();
    message->body = body;
    return body != nullptr ? ReadAttrRqst(reader, body) : SLP_ERR_NO_MEMORY;
  }
  if (message->header->functionId == SLP_ATTR_RPLY) {
    auto* body = NewRecord<AttrRplyBody>();
    message->body = body;
    return body != nullptr ? ReadAttrRply(reader, body) : SLP_ERR_NO_MEMORY;
  }
  return SLP_ERR_UNSUPPORTED;
}

// A new message with an empty header; null when memory runs out.
SlpMessage* NewMessage() {
  OwnedSlpMessage message(NewRecord<SlpMessage>());
  if (message) {
    message->header = NewRecord<SlpHeader>();
  }
  return message && message->header != nullptr ? message.release() : nullptr;
}

std::int32_t TextOf(const SlpMessage* message, SlpText AttrRqstBody::*member, const char** text) {
  if (message == nullptr) {
    return SLP_ERR_ARGUMENT;
  }
  if (message->header->functionId != SLP_ATTR_RQST) {
    return SLP_ERR_UNSUPPORTED;
  }
  const SlpText& found = static_cast<const AttrRqstBody*>(message->body)->*member;
  if (text != nullptr) {
    *text = found.bytes;
  }
  return found.length;
}

// Writes numbers in network byte order, and texts.
struct Writer {
  char* at;
};

void WriteNumber(Writer* writer, std::int32_t number, std::int32_t byteCount) {
  for (std::int32_t shift = 8 * (byteCount - 1); shift >= 0; shift -= 8) {
    *writer->at++ = static_cast<char>(number >> shift);
  }
}

void WriteBytes(Writer* writer, const char* bytes, std::int32_t length) {
  if (length > 0) {
    std::memcpy(writer->at, bytes, static_cast<std::size_t>(length));
    writer->at += length;
  }
}

void WriteString(Writer* writer, const SlpText& text) {
  WriteNumber(writer, text.length, 2);
  WriteBytes(writer, text.bytes, text.length);
}

void WriteHeader(Writer* writer, const SlpHeader& header) {
  std::uint32_t flags = header.length > SLP_OVERFLOW_LENGTH ? FLAG_OVERFLOW : 0;
  flags |= header.requestMulticast == 1 ? FLAG_REQUEST_MULTICAST : 0;
  WriteNumber(writer, SLP_VERSION, 1);
  WriteNumber(writer, header.functionId, 1);
  WriteNumber(writer, header.length, 3);
  WriteNumber(writer, static_cast<std::int32_t>(flags), 2);
  WriteNumber(writer, 0, 3);  // no extension
  WriteNumber(writer, header.xid, 2);
  WriteNumber(writer, header.languageTagLength, 2);
  WriteBytes(writer, header.languageTag, header.languageTagLength);
}

}  // namespace

SlpResult DecodeSlpMessage(const void* bytes, std::int32_t byteCount, SlpMessage** message) {
  if (message != nullptr) {
    *message = nullptr;
  }
  if (bytes == nullptr || byteCount < 1 || message == nullptr) {
    return SLP_ERR_ARGUMENT;
  }
  OwnedSlpMessage made(NewMessage());
  if (!made) {
    return SLP_ERR_NO_MEMORY;
  }
  const auto* begin = static_cast<const unsigned char*>(bytes);
  Reader reader{begin, begin + byteCount};
  SlpResult result = ReadHeader(&reader, made->header);
  if (result == SLP_OK) {
    result = ReadBody(&reader, made.get());
  }
  if (result == SLP_OK) {
    *message = made.release();
  }
  return result;
}

void FreeSlpMessage(SlpMessage* message) {
  if (message == nullptr) {
    return;
  }
  if (message->body != nullptr && message->header->functionId == SLP_ATTR_RQST) {
    auto* body = static_cast<AttrRqstBody*>(message->body);
    for (SlpText* text :
         {&body->url, &body->scopeList, &body->tagList, &body->previousResponders, &body->spi}) {
      std::free(text->bytes);
    }
  } else if (message->body != nullptr) {
    std::free(static_cast<AttrRplyBody*>(message->body)->attributeList.bytes);
  }
  std::free(message->body);
  if (message->header != nullptr) {
    std::free(message->header->languageTag);
  }
  std::free(message->header);
  std::free(message);
}

std::int32_t GetXid(const SlpMessage* message) {
  return message != nullptr ? message->header->xid : SLP_ERR_ARGUMENT;
}

std::int32_t GetLanguageTag(const SlpMessage* message, const char** tag) {
  if (message == nullptr) {
    return SLP_ERR_ARGUMENT;
  }
  if (tag != nullptr) {
    *tag = message->header->languageTag;
  }
  return message->header->languageTagLength;
}

std::int32_t GetPreviousResponders(const SlpMessage* message, const char** text) {
  return TextOf(message, &AttrRqstBody::previousResponders, text);
}

std::int32_t GetUrl(const SlpMessage* message, const char** text) {
  return TextOf(message, &AttrRqstBody::url, text);
}

std::int32_t GetScopeList(const SlpMessage* message, const char** text) {
  return TextOf(message, &AttrRqstBody::scopeList, text);
}

std::int32_t GetTagList(const SlpMessage* message, const char** text) {
  return TextOf(message, &AttrRqstBody::tagList, text);
}

SlpResult BuildAttrRply(std::int32_t xid, std::int32_t errorCode, const char* attributeList,
                        const char* languageTag, SlpMessage** message) {
  *message = nullptr;
  if (attributeList == nullptr || languageTag == nullptr) {
    return SLP_ERR_ARGUMENT;
  }
  OwnedSlpMessage made(NewMessage());
  if (!made) {
    return SLP_ERR_NO_MEMORY;
  }
  SlpHeader* header = made->header;
  header->version = SLP_VERSION;
  header->functionId = SLP_ATTR_RPLY;
  header->xid = xid;
  header->languageTag = CopyText(languageTag);
  auto* body = NewRecord<AttrRplyBody>();
  made->body = body;
  if (body == nullptr || header->languageTag == nullptr) {
    return SLP_ERR_NO_MEMORY;
  }
  body->errorCode = errorCode;
  body->attributeList.bytes = CopyText(attributeList);
  if (body->attributeList.bytes == nullptr) {
    return SLP_ERR_NO_MEMORY;
  }
  body->attributeList.length = static_cast<std::int32_t>(std::strlen(attributeList));
  header->languageTagLength = static_cast<std::int32_t>(std::strlen(languageTag));
  // Beside the texts: Error Code, the list's length, and the count of authentication blocks.
  header->length = FIXED_HEADER_LENGTH + header->languageTagLength + body->attributeList.length + 5;
  *message = made.release();
  return SLP_OK;
}

std::int32_t EncodeSlpMessage(const SlpMessage* message, char* buffer) {
  if (message == nullptr || buffer == nullptr) {
    return SLP_ERR_ARGUMENT;
  }
  Writer writer{buffer};
  if (message->header->functionId == SLP_ATTR_RPLY) {
    WriteHeader(&writer, *message->header);
    const auto* body = static_cast<const AttrRplyBody*>(message->body);
    WriteNumber(&writer, body->errorCode, 2);
    WriteString(&writer, body->attributeList);
    WriteNumber(&writer, 0, 1);  // no authentication blocks
  } else if (message->header->functionId == SLP_ATTR_RQST) {
    WriteHeader(&writer, *message->header);
    const auto* body = static_cast<const AttrRqstBody*>(message->body);
    for (const SlpText* text :
         {&body->previousResponders, &body->url, &body->scopeList, &body->tagList}) {
      WriteString(&writer, *text);
    }
    WriteNumber(&writer, 0, 2);  // no SPI
  } else {
    return SLP_ERR_UNSUPPORTED;
  }
  return static_cast<std::int32_t>(writer.at - buffer);
}

}  // namespace zvqrn
