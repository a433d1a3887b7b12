#include "pushscan/xml_reader.h"

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

// Walks the places in the text where a tag may begin.
struct TagWalk {
  const XmlContext* context;
  std::int32_t next;  // the next note; the text itself is searched after the last one
  const char* at;     // the place found, or null
};

const char* FindTagStart(const char* from, const char* end) {
  return static_cast<const char*>(std::memchr(from, '<', static_cast<std::size_t>(end - from)));
}

bool Advance(TagWalk* walk) {
  const XmlContext* context = walk->context;
  if (walk->next < context->tagCount) {
    walk->at = context->tags[walk->next++];
  } else if (context->tagCount < XML_TAG_NOTES) {
    walk->at = nullptr;
  } else {
    walk->at = FindTagStart(walk->at + 1, context->inputEnd);
  }
  return walk->at != nullptr;
}

// Advances to the next tag that is exactly `pattern`.
bool AdvanceTo(TagWalk* walk, const char* pattern, std::size_t length) {
  while (Advance(walk)) {
    const char* at = walk->at;
    if (static_cast<std::size_t>(walk->context->inputEnd - at) >= length && at[1] == pattern[1] &&
        std::memcmp(at, pattern, length) == 0) {
      return true;
    }
  }
  return false;
}

bool HasInput(const XmlContext* context) {
  return context != nullptr && context->input != nullptr;
}

}  // namespace

std::int32_t SetXmlInput(XmlContext* context, const char* input, std::int32_t inputLength) {
  if (context == nullptr || input == nullptr || inputLength < 0) {
    return 0;
  }
  const auto length = static_cast<std::size_t>(inputLength);
  const void* nul = std::memchr(input, '\0', length);
  context->input = input;
  context->inputEnd = nul != nullptr ? static_cast<const char*>(nul) : input + length;
  context->tagCount = 0;
  const char* tag = FindTagStart(input, context->inputEnd);
  while (tag != nullptr && context->tagCount < XML_TAG_NOTES) {
    context->tags[context->tagCount++] = tag;
    tag = FindTagStart(tag + 1, context->inputEnd);
  }
  return 1;
}

XmlResult FindPrefixedStartTag(const XmlContext* context, const char* prefix, const char* name) {
  Pattern pattern;
  if (!HasInput(context) || prefix == nullptr || name == nullptr ||
      !MakePattern(&pattern, {"<", prefix, ":", name, " "})) {
    return XML_BAD_ARGUMENT;
  }
  TagWalk walk{context, 0, nullptr};
  return AdvanceTo(&walk, pattern.text, pattern.length) ? XML_FOUND : XML_NOT_FOUND;
}

XmlResult FindElementText(const XmlContext* context, const char* name, std::int32_t maxLength,
                          XmlText* found) {
  Pattern endTag;
  Pattern startTag;
  if (!HasInput(context) || name == nullptr || maxLength < 0 || found == nullptr ||
      !MakePattern(&endTag, {"</", name, ">"}) || !MakePattern(&startTag, {"<", name, ">"})) {
    return XML_BAD_ARGUMENT;
  }
  TagWalk walk{context, 0, nullptr};
  if (!AdvanceTo(&walk, startTag.text, startTag.length)) {
    return XML_NOT_FOUND;
  }
  const char* value = walk.at + startTag.length;
  if (!AdvanceTo(&walk, endTag.text, endTag.length)) {
    return XML_NOT_FOUND;
  }
  const std::ptrdiff_t length = walk.at - value;
  if (length > XML_VALUE_LIMIT || length > maxLength) {
    return XML_BAD_ARGUMENT;
  }
  *found = XmlText{value, static_cast<std::int32_t>(length)};
  return XML_FOUND;
}

XmlResult ReadElementText(const XmlContext* context, const char* name, std::int32_t maxLength,
                          char* out) {
  if (out == nullptr || maxLength < 0) {
    return XML_BAD_ARGUMENT;
  }
  std::memset(out, 0, static_cast<std::size_t>(maxLength) + 1);
  XmlText found{};
  const XmlResult result = FindElementText(context, name, maxLength, &found);
  if (result == XML_FOUND) {
    std::memcpy(out, found.begin, static_cast<std::size_t>(found.length));
  }
  return result;
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
