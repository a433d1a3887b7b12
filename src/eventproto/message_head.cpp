#include "eventproto/message_head.h"

#include <cstring>

#include "base/text.h"
#include "eventproto/protocol.h"

namespace zvqrn {
namespace {

constexpr char HTTP_MARK[] = "HTTP/";

// A run of bytes inside a head.
struct Span {
  const char* begin;
  const char* end;
};

std::size_t Size(Span span) {
  return static_cast<std::size_t>(span.end - span.begin);
}

const char* FindByte(Span span, char byte) {
  return static_cast<const char*>(std::memchr(span.begin, byte, Size(span)));
}

bool Contains(Span span, const char* mark) {
  const std::size_t length = std::strlen(mark);
  for (const char* at = span.begin; static_cast<std::size_t>(span.end - at) >= length; at++) {
    if (std::memcmp(at, mark, length) == 0) {
      return true;
    }
  }
  return false;
}

// The CR of the next CR LF, or null.
const char* FindLineEnd(Span text) {
  while (const char* at = FindByte(text, '\r')) {
    if (text.end - at >= 2 && at[1] == '\n') {
      return at;
    }
    text.begin = at + 1;
  }
  return nullptr;
}

struct StartLine {
  Span tokens[3];
  std::int32_t kind;  // 0 when the line is malformed
};

// Exactly three tokens with single spaces between them; "HTTP/" in the third makes a request, in
// the first a response.  Only the third may be empty: a status line need not give a reason.
StartLine CutStartLine(Span line) {
  StartLine cut{};
  const char* first = FindByte(line, ' ');
  if (first == nullptr) {
    return cut;
  }
  const char* second = FindByte({first + 1, line.end}, ' ');
  if (second == nullptr || FindByte({second + 1, line.end}, ' ') != nullptr ||
      first == line.begin || second == first + 1) {
    return cut;
  }
  cut.tokens[0] = {line.begin, first};
  cut.tokens[1] = {first + 1, second};
  cut.tokens[2] = {second + 1, line.end};
  if (Contains(cut.tokens[2], HTTP_MARK)) {
    cut.kind = KIND_REQUEST;
  } else if (Contains(cut.tokens[0], HTTP_MARK)) {
    cut.kind = KIND_RESPONSE;
  }
  return cut;
}

Span Trim(Span span) {
  while (span.begin != span.end && (*span.begin == ' ' || *span.begin == '\t')) {
    span.begin++;
  }
  while (span.begin != span.end && (span.end[-1] == ' ' || span.end[-1] == '\t')) {
    span.end--;
  }
  return span;
}

// A name and a value, neither empty, around the first colon.  A NUL would cut a token short and
// shift every token behind it, so it makes the line malformed.
bool CutHeaderLine(Span line, Span* name, Span* value) {
  const char* colon = FindByte(line, ':');
  if (colon == nullptr || FindByte(line, '\0') != nullptr) {
    return false;
  }
  *name = Trim({line.begin, colon});
  *value = Trim({colon + 1, line.end});
  return name->begin != name->end && value->begin != value->end;
}

// Sets the bytes of the copy from `*filled` up to `end` to NUL.
void Blank(char* copy, const char* source, const char** filled, const char* end) {
  std::memset(copy + (*filled - source), 0, static_cast<std::size_t>(end - *filled));
  *filled = end;
}

// Cuts the copy of a head into tokens: everything between two tokens becomes NUL.
bool CutHead(ParsedMessage* parsed, const char* source) {
  Span rest{source, source + parsed->headLength};
  const char* filled = source;
  const char* lineEnd = FindLineEnd(rest);
  const StartLine start = CutStartLine({rest.begin, lineEnd});
  if (start.kind == 0) {
    return false;
  }
  for (const Span token : start.tokens) {
    Blank(parsed->buffer, source, &filled, token.begin);
    filled = token.end;
  }
  parsed->kind = start.kind;
  parsed->headerArea = parsed->buffer + (lineEnd + 2 - source);

  for (rest.begin = lineEnd + 2; (lineEnd = FindLineEnd(rest)) != rest.begin;
       rest.begin = lineEnd + 2) {
    Span name{};
    Span value{};
    if (!CutHeaderLine({rest.begin, lineEnd}, &name, &value)) {
      return false;
    }
    Blank(parsed->buffer, source, &filled, name.begin);
    for (const char* letter = name.begin; letter != name.end; letter++) {
      parsed->buffer[letter - source] = ToCapital(*letter);
    }
    filled = name.end;
    Blank(parsed->buffer, source, &filled, value.begin);
    filled = value.end;
  }
  Blank(parsed->buffer, source, &filled, rest.end);
  return true;
}

// The next run of bytes that are not NUL, from `*at` on; null when there is none before `end`.
const char* NextToken(const char** at, const char* end) {
  while (*at != end && **at == '\0') {
    (*at)++;
  }
  if (*at == end) {
    return nullptr;
  }
  const char* token = *at;
  while (*at != end && **at != '\0') {
    (*at)++;
  }
  return token;
}

}  // namespace

std::int32_t FindHeadEnd(const char* data, std::int32_t length) {
  if (data == nullptr || length < 4) {
    return 0;
  }
  Span rest{data, data + length};
  while (const char* lineEnd = FindLineEnd(rest)) {
    rest.begin = lineEnd + 2;
    if (Size(rest) >= 2 && rest.begin[0] == '\r' && rest.begin[1] == '\n') {
      return static_cast<std::int32_t>(rest.begin + 2 - data);
    }
  }
  return 0;
}

std::int32_t ParseHead(const char* data, std::int32_t length, ParsedMessage** parsed) {
  if (parsed == nullptr) {
    return 0;
  }
  *parsed = nullptr;
  if (data == nullptr) {
    return 0;
  }
  const std::int32_t headLength = FindHeadEnd(data, length);
  if (headLength < 1) {
    return -1;
  }
  OwnedParsedMessage made(NewRecord<ParsedMessage>());
  if (!made) {
    return -1;
  }
  made->headLength = headLength;
  made->bufferSize = RoundUpPast8(headLength);
  made->buffer = NewBytes(made->bufferSize);
  if (made->buffer == nullptr) {
    return -1;
  }
  std::memcpy(made->buffer, data, static_cast<std::size_t>(headLength));
  made->bodyStart = length != headLength ? data + headLength : nullptr;
  if (!CutHead(made.get(), data)) {
    return -1;
  }
  *parsed = made.release();
  return (*parsed)->kind;
}

HeadState MeasureHead(const char* data, std::int32_t length, HeadMeasure* measure) {
  *measure = HeadMeasure{};
  if (data == nullptr) {
    return HEAD_UNFINISHED;
  }
  Span rest{data, data + length};
  const char* lineEnd = FindLineEnd(rest);
  if (lineEnd == nullptr) {
    return HEAD_UNFINISHED;
  }
  if (CutStartLine({rest.begin, lineEnd}).kind == 0) {
    return HEAD_MALFORMED;
  }
  Span contentLength{};
  for (rest.begin = lineEnd + 2; (lineEnd = FindLineEnd(rest)) != rest.begin;
       rest.begin = lineEnd + 2) {
    if (lineEnd == nullptr) {
      return HEAD_UNFINISHED;
    }
    Span name{};
    Span value{};
    if (!CutHeaderLine({rest.begin, lineEnd}, &name, &value)) {
      return HEAD_MALFORMED;
    }
    if (contentLength.begin == nullptr && IsWord(name.begin, Size(name), HEADER_CONTENT_LENGTH)) {
      contentLength = value;
    }
  }
  measure->headLength = static_cast<std::int32_t>(rest.begin + 2 - data);
  measure->contentLength = DecimalNumber(contentLength.begin, contentLength.end);
  return HEAD_COMPLETE;
}

std::int32_t FindHeader(const ParsedMessage* parsed, const char* name, const char** value) {
  if (parsed == nullptr || name == nullptr || value == nullptr) {
    return 0;
  }
  if (*name == '\0' || parsed->kind < 1) {
    return -1;
  }
  const char* at = parsed->headerArea;
  const char* end = parsed->buffer + parsed->headLength;
  while (const char* candidate = NextToken(&at, end)) {
    const char* candidateValue = NextToken(&at, end);
    if (candidateValue != nullptr && EqualsIgnoringCase(candidate, name) == 0) {
      *value = candidateValue;
      return 1;
    }
  }
  return -1;
}

std::int32_t GetBodyStart(const ParsedMessage* parsed, const char** start) {
  if (parsed == nullptr || start == nullptr) {
    return 0;
  }
  if (parsed->kind < 1) {
    return -1;
  }
  *start = parsed->bodyStart;
  return 1;
}

std::int32_t GetHeadLength(const ParsedMessage* parsed, std::int32_t* length) {
  if (parsed == nullptr || length == nullptr) {
    return 0;
  }
  if (parsed->kind < 1) {
    return -1;
  }
  *length = parsed->headLength;
  return 1;
}

void FreeParsedMessage(ParsedMessage* parsed) {
  if (parsed != nullptr) {
    std::free(parsed->buffer);
    std::free(parsed);
  }
}

std::int32_t ContentLength(const ParsedMessage* parsed) {
  const char* value = nullptr;
  return FindHeader(parsed, HEADER_CONTENT_LENGTH, &value) == 1 ? DecimalNumber(value) : 0;
}

}  // namespace zvqrn
