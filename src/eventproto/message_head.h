// The head of an incoming event message: a start line of three tokens, header lines, and an empty
// line (RFC 1945, sections 4.1 and 4.2).  A head is parsed once, in a copy that is cut into
// NUL-terminated tokens; names are looked up without regard to case.
#pragma once

#include <cstdint>

#include "base/allocation.h"

namespace zvqrn {

enum MessageKind : std::int32_t { KIND_REQUEST = 2, KIND_RESPONSE = 3 };

// One parsed head; owns `buffer`.
struct ParsedMessage {
  std::int32_t kind;        // KIND_REQUEST or KIND_RESPONSE
  std::int32_t headLength;  // the empty line included
  std::int32_t bufferSize;
  char* buffer;           // the tokens: three of the start line, then names and values in turn
  char* headerArea;       // the first byte after the start line, in `buffer`
  const char* bodyStart;  // the byte after the head in the received data, or null; not owned
};

// The length of the head at the start of `data`, up to and with the first empty line; 0 when there
// is none yet.
std::int32_t FindHeadEnd(const char* data, std::int32_t length);

// Parses the head at the start of `data`: its kind and a new ParsedMessage; -1 when it is not
// complete, malformed, or memory runs out; 0 for null arguments.  `data` must outlive the use of
// bodyStart.
std::int32_t ParseHead(const char* data, std::int32_t length, ParsedMessage** parsed);

// What the bytes in hand are, without a copy of them.
enum HeadState : std::int32_t {
  HEAD_MALFORMED = -1,  // a line that has ended is malformed
  HEAD_UNFINISHED = 0,  // more bytes can still make a head of them
  HEAD_COMPLETE = 1     // ParseHead accepts them
};
struct HeadMeasure {
  std::int32_t headLength;     // both 0 unless the head is complete
  std::int32_t contentLength;  // the number in the first Content-Length; 0 when there is none
};
HeadState MeasureHead(const char* data, std::int32_t length, HeadMeasure* measure);

// 1 and the value of the first header of that name; -1 when there is none; 0 for null arguments.
// The value lives as long as `parsed`.
std::int32_t FindHeader(const ParsedMessage* parsed, const char* name, const char** value);

// 1 and the field; -1 when `parsed` holds no head; 0 for null arguments.
std::int32_t GetBodyStart(const ParsedMessage* parsed, const char** start);
std::int32_t GetHeadLength(const ParsedMessage* parsed, std::int32_t* length);

// Null does nothing.
void FreeParsedMessage(ParsedMessage* parsed);

using OwnedParsedMessage = Owned<ParsedMessage, FreeParsedMessage>;

// The number in Content-Length; 0 when the header is missing.
std::int32_t ContentLength(const ParsedMessage* parsed);

}  // namespace zvqrn
