#include "pushscan/xml_reader.h"

#include <algorithm>
#include <cstring>
#include <initializer_list>

#include "base/text.h"

namespace zvqrn {
namespace {

// A tag to search for.
struct Pattern {
  char text[XML_PATTERN_LIMIT + 1];
  std::size_t length;
};

// Joins the pieces of a tag; false when they are too long.
bool MakePattern(Pattern* pattern, std::initializer_list<const char*> pieces) {
  pattern->length = 0;
  for (const char* piece : pieces) {
    const std::size_t size = std::strlen(piece);
    if (size > XML_PATTERN_LIMIT - pattern->length) {
      return false;
    }
    std::memcpy(pattern->text + pattern->length, piece, size);
    pattern->length += size;
  }
  return true;
}

const char* Search(const char* begin, const char* end, const Pattern& pattern) {
  const char* found = std::search(begin, end, pattern.text, pattern.text + pattern.length);
  return found != end ? found : nullptr;
}

// The end of the text that is searched.
const char* TextEnd(const XmlContext* context) {
  const void* nul =
      std::memchr(context->input, '\0', static_cast<std::size_t>(context->inputLength));
  return nul != nullptr ? static_cast<const char*>(nul) : context->input + context->inputLength;
}

bool HasInput(const XmlContext* context) {
  return context != nullptr && context->input != nullptr;
}

}  // namespace

std::int32_t SetXmlInput(XmlContext* context, const char* input, std::int32_t inputLength) {
  if (context == nullptr || input == nullptr || inputLength < 0) {
    return 0;
  }
  context->input = input;
  context->inputLength = inputLength;
  return 1;
}

XmlResult FindPrefixedStartTag(const XmlContext* context, const char* prefix, const char* name) {
  Pattern pattern;
  if (!HasInput(context) || prefix == nullptr || name == nullptr ||
      !MakePattern(&pattern, {"<", prefix, ":", name, " "})) {
    return XML_BAD_ARGUMENT;
  }
  return Search(context->input, TextEnd(context), pattern) != nullptr ? XML_FOUND : XML_NOT_FOUND;
}

XmlResult ReadElementText(const XmlContext* context, const char* name, std::int32_t maxLength,
                          char* out) {
  if (!HasInput(context) || name == nullptr || maxLength < 0 || out == nullptr) {
    return XML_BAD_ARGUMENT;
  }
  std::memset(out, 0, static_cast<std::size_t>(maxLength) + 1);
  Pattern startTag;
  Pattern endTag;
  if (!MakePattern(&startTag, {"<", name, ">"}) || !MakePattern(&endTag, {"</", name, ">"})) {
    return XML_BAD_ARGUMENT;
  }
  const char* end = TextEnd(context);
  const char* start = Search(context->input, end, startTag);
  if (start == nullptr) {
    return XML_NOT_FOUND;
  }
  const char* value = start + startTag.length;
  const char* valueEnd = Search(value, end, endTag);
  if (valueEnd == nullptr) {
    return XML_NOT_FOUND;
  }
  const std::ptrdiff_t length = valueEnd - value;
  if (length > XML_VALUE_LIMIT || length > maxLength) {
    return XML_BAD_ARGUMENT;
  }
  std::memcpy(out, value, static_cast<std::size_t>(length));
  return XML_FOUND;
}

std::int32_t IsIntegerText(const char* text) {
  if (text == nullptr) {
    return 0;
  }
  while (IsWhiteSpace(*text)) {
    text++;
  }
  if (*text == '+' || *text == '-') {
    text++;
  }
  while (IsDigit(*text)) {
    text++;
  }
  return *text == '\0' ? 1 : 0;
}

std::int32_t ParseIntegerText(const char* text) {
  return text != nullptr ? DecimalNumber(text) : 0;
}

}  // namespace zvqrn
