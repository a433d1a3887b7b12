// The scanner's own writer of attribute requests and reader of attribute replies, the SLPv2
// messages by which scanners find PCs.  It shares no code with the library, so that the two check
// each other; the reader is strict and says what is wrong.
#pragma once

#include <cstdint>
#include <string>

#include "scanner/wire/attribute_list.h"

namespace zvqrn::scanner {

// What a request says; texts go into it as they are, so that wrong ones can be sent too.
struct AttributeRequest {
  std::uint16_t xid = 0;
  bool multicast = false;  // the flag REQUEST MCAST
  std::string language = "en";
  std::string previousResponders;
  std::string serviceType = "service:Quorin-agent";
  std::string scopes = "default";
  std::string tags;
};

// Gives the bytes of a request.  No text of it may be longer than 65535 bytes.
std::string RequestBytes(const AttributeRequest& request);

// Gives a name as an item of a scope list: a backslash before each \ , ( and ).
std::string EscapeScope(const std::string& name);

// Reads the reply to `request`.  Gives an empty text and the PC when every byte is as it must be,
// otherwise what is wrong (escaped).
std::string ReadReply(const std::string& bytes, const AttributeRequest& request, PcDescription* pc);

// True for a well-formed reply to a request of another XID: one of an earlier search's burst.
bool AnswersAnotherRequest(const std::string& bytes, const AttributeRequest& request);

// True for a message of the function of a request: another scanner's, that came to the same port.
bool IsAttributeRequest(const std::string& bytes);

}  // namespace zvqrn::scanner
