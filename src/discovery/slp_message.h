// The codec of discovery: Attribute Requests and Attribute Replies of the Service Location
// Protocol, version 2 (RFC 2608, sections 8, 10.3 and 10.4).  Nothing else of the protocol is
// spoken.  No state; any thread.
#pragma once

#include <cstdint>

#include "base/allocation.h"

namespace zvqrn {

enum SlpResult : std::int32_t {
  SLP_OK = 1,
  SLP_ERR_NO_MEMORY = -3,
  SLP_ERR_UNSUPPORTED = -4,  // a function that is not spoken, or a field that this one has not
  SLP_ERR_ARGUMENT = -7,     // a missing argument; also a request whose body is too short
  SLP_ERR_MALFORMED = -8     // a header or text against the rules; also a short reply
};

// Function-IDs (RFC 2608, section 8).
constexpr std::int32_t SLP_ATTR_RQST = 6;
constexpr std::int32_t SLP_ATTR_RPLY = 7;

// A message above this length carries the OVERFLOW flag.
constexpr std::int32_t SLP_OVERFLOW_LENGTH = 1400;

// The header (RFC 2608, section 8); `length` is that of the whole message.
struct SlpHeader {
  std::int32_t version;
  std::int32_t functionId;
  std::int32_t length;
  std::int32_t overflow;
  std::int32_t fresh;
  std::int32_t requestMulticast;
  std::int32_t reserved;
  std::int32_t nextExtensionOffset;
  std::int32_t xid;
  std::int32_t languageTagLength;
  char* languageTag;  // owned, NUL-terminated; never null in a message
};

// A text of a body: owned and NUL-terminated; null when its length is 0.
struct SlpText {
  std::int32_t length;
  char* bytes;
};

// The body of an Attribute Request (RFC 2608, section 10.3).
struct AttrRqstBody {
  SlpText url;
  SlpText scopeList;
  SlpText tagList;
  SlpText previousResponders;
  SlpText spi;  // left empty by the reader
};

// The body of an Attribute Reply (RFC 2608, section 10.4).
struct AttrRplyBody {
  std::int32_t errorCode;
  SlpText attributeList;  // only when errorCode is 0
};

// One message; owns both records.  The header's functionId says which body it is.
struct SlpMessage {
  SlpHeader* header;
  void* body;
};

// Reads one datagram: SLP_OK and a new message that the caller frees, or an error and none.
SlpResult DecodeSlpMessage(const void* bytes, std::int32_t byteCount, SlpMessage** message);

// Null does nothing.
void FreeSlpMessage(SlpMessage* message);

using OwnedSlpMessage = Owned<SlpMessage, FreeSlpMessage>;

// Fields of a message: the value or the text's length, or an SlpResult below 0.  `text` may be
// null; what it receives belongs to the message and is null for a length of 0.
std::int32_t GetXid(const SlpMessage* message);
std::int32_t GetLanguageTag(const SlpMessage* message, const char** tag);
std::int32_t GetPreviousResponders(const SlpMessage* message, const char** text);
std::int32_t GetUrl(const SlpMessage* message, const char** text);
std::int32_t GetScopeList(const SlpMessage* message, const char** text);
std::int32_t GetTagList(const SlpMessage* message, const char** text);

// Makes a reply; the caller frees it.
SlpResult BuildAttrRply(std::int32_t xid, std::int32_t errorCode, const char* attributeList,
                        const char* languageTag, SlpMessage** message);

// Writes a message into a buffer of its header's `length` bytes; gives their count, or an SlpResult
// below 0.
std::int32_t EncodeSlpMessage(const SlpMessage* message, char* buffer);

}  // namespace zvqrn
