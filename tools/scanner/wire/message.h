// The scanner's own writer and reader of event messages (a start line, headers, an empty line, a
// body).  It shares no code with the library, so that the two check each other.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace zvqrn::scanner {

// Name and value, in the order of the message.
using Headers = std::vector<std::pair<std::string, std::string>>;

struct Message {
  std::string startLine;
  Headers headers;
  std::string body;
};

// Gives the bytes of a message, each header line as "name : value".
std::string MessageBytes(const Message& message);

// Replaces the first header of this name (the case of letters does not count), or adds it.
void SetHeader(Headers* headers, const std::string& name, const std::string& value);

// Removes every header of this name.
void RemoveHeader(Headers* headers, const std::string& name);

// The value of the first header of this name, or null.
const std::string* FindHeader(const Headers& headers, const std::string& name);

enum ReadResult { READ_DONE, READ_MORE, READ_BAD };

// The longest body that a PC may send.
constexpr std::int32_t BODY_LIMIT = 256 * 1024 * 1024;

// Takes one whole message from the front of `bytes`.  READ_MORE: it is not complete yet and `bytes`
// is untouched; READ_BAD: this will never be a message, or its body is longer than `bodyLimit`;
// `why` says why.
ReadResult TakeMessage(std::string* bytes, std::int32_t bodyLimit, Message* message,
                       std::string* why);

// True when the start line makes the message an answer (HTTP/1.0 200 OK), or a request.
bool IsAnswer(const Message& message);
bool IsRequest(const Message& message);

}  // namespace zvqrn::scanner
