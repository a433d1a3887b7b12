#include "pushscan/xml_reader.h"

#include <algorithm>
#include <cstring>

#include "base/text.h"

namespace zvqrn {
namespace {

// Walks the places in the text where a tag may begin.
struct TagWalk {
  const XmlContext* context;
  std::int32_t next;  // the next note; the text itself is searched after the last one
  const char* at;     // the place looked at last, or null
};

const char* FindTagStart(const char* from, const char* end) {
  return static_cast<const char*>(std::memchr(from, '<', static_cast<std::size_t>(end - from)));
}

// The pieces of a tag that is searched for, behind its "<".
struct TagPattern {
  std::string_view opening;
  std::string_view name;
  char closing;
};

bool IsTag(const char* at, const char* end, const TagPattern& pattern) {
  const std::size_t length = 1 + pattern.opening.size() + pattern.name.size() + 1;
  return static_cast<std::size_t>(end - at) >= length && at[length - 1] == pattern.closing &&
         std::string_view(at + 1, pattern.opening.size()) == pattern.opening &&
         std::string_view(at + 1 + pattern.opening.size(), pattern.name.size()) == pattern.name;
}

// Advances to the next tag that is exactly the pattern.
bool AdvanceTo(TagWalk* walk, const TagPattern& pattern) {
  const XmlContext* context = walk->context;
  const char* end = context->inputEnd;
  while (walk->next < context->tagCount) {
    walk->at = context->tags[walk->next++];
    if (IsTag(walk->at, end, pattern)) {
      return true;
    }
  }
  if (context->tagCount < XML_TAG_NOTES) {
    return false;
  }
  const char* at = walk->at != nullptr ? walk->at : context->tags[XML_TAG_NOTES - 1];
  do {
    at = FindTagStart(at + 1, end);
  } while (at != nullptr && !IsTag(at, end, pattern));
  walk->at = at;
  return at != nullptr;
}

// Eight bytes of text that are looked at together.
using TextWord = std::uint64_t;

// The text's first byte is the lowest, whatever the machine's byte order; where that is the
// machine's own, compilers make one load of it.
TextWord LoadTextWord(const char* at) {
  const auto byte = [at](int i) { return TextWord{static_cast<unsigned char>(at[i])} << (8 * i); };
  return byte(0) | byte(1) | byte(2) | byte(3) | byte(4) | byte(5) | byte(6) | byte(7);
}

// The top bit of each byte that is "<", and no other bit.
TextWord FindLessThan(TextWord word) {
  constexpr TextWord LESS_THAN = 0x3c3c3c3c3c3c3c3cU;
  constexpr TextWord LOW_BITS = 0x7f7f7f7f7f7f7f7fU;
  const TextWord difference = word ^ LESS_THAN;
  return ~(((difference & LOW_BITS) + LOW_BITS) | difference | LOW_BITS);
}

// Notes where the first tags begin.  They stand so close together that a search for each of them
// would cost more than the look at every byte.
void NoteTags(XmlContext* context) {
  const char* const end = context->inputEnd;
  const char* at = context->input;
  std::int32_t count = 0;
  while (end - at >= static_cast<std::ptrdiff_t>(sizeof(TextWord)) && count < XML_TAG_NOTES) {
    for (TextWord found = FindLessThan(LoadTextWord(at)); found != 0 && count < XML_TAG_NOTES;
         found &= found - 1) {
      context->tags[count++] = at + __builtin_ctzll(found) / 8;
    }
    at += sizeof(TextWord);
  }
  for (; at < end && count < XML_TAG_NOTES; at++) {
    if (*at == '<') {
      context->tags[count++] = at;
    }
  }
  context->tagCount = count;
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
  NoteTags(context);
  return 1;
}

XmlResult FindPrefixedStartTag(const XmlContext* context, const char* prefix, const char* name) {
  if (!HasInput(context) || prefix == nullptr || name == nullptr) {
    return XML_BAD_ARGUMENT;
  }
  char opening[XML_PATTERN_LIMIT];
  const std::size_t prefixLength = std::strlen(prefix);
  const std::size_t nameLength = std::strlen(name);
  if (prefixLength > XML_PATTERN_LIMIT || nameLength > XML_PATTERN_LIMIT ||
      prefixLength + nameLength + 3 > XML_PATTERN_LIMIT) {
    return XML_BAD_ARGUMENT;
  }
  std::copy_n(prefix, prefixLength, opening);
  opening[prefixLength] = ':';
  TagWalk walk{context, 0, nullptr};
  return AdvanceTo(&walk, {{opening, prefixLength + 1}, {name, nameLength}, ' '}) ? XML_FOUND
                                                                                  : XML_NOT_FOUND;
}

XmlResult FindElementText(const XmlContext* context, std::string_view name, std::int32_t maxLength,
                          XmlText* found) {
  if (!HasInput(context) || maxLength < 0 || found == nullptr ||
      name.size() > XML_PATTERN_LIMIT - 3) {
    return XML_BAD_ARGUMENT;
  }
  TagWalk walk{context, 0, nullptr};
  if (!AdvanceTo(&walk, {"", name, '>'})) {
    return XML_NOT_FOUND;
  }
  const char* value = walk.at + name.size() + 2;
  if (!AdvanceTo(&walk, {"/", name, '>'})) {
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
  if (name == nullptr || out == nullptr || maxLength < 0) {
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
