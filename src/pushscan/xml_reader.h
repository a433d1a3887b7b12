// Takes single values out of a received XML text by searching for the exact bytes of a start tag
// and of the next end tag of that name.  Well-formedness, namespaces, entities and white space are
// not looked at.  The text is never changed; lookups allocate nothing.
#pragma once

#include <cstdint>
#include <string_view>

#include "pushscan/xml_context.h"

namespace zvqrn {

enum XmlResult : std::int32_t {
  XML_NOT_FOUND = 0,
  XML_FOUND = 1,
  XML_BAD_ARGUMENT = 9  // an argument is missing, or a tag name or value is too long
};

// A tag with its brackets and a NUL must fit 64 bytes; no value is longer than this.
constexpr std::int32_t XML_PATTERN_LIMIT = 63;
constexpr std::int32_t XML_VALUE_LIMIT = 256;

// Stores the text in the context and notes where its tags begin; the caller keeps it valid.  It
// ends early at a NUL.  1, or 0 for a missing or negative argument.
std::int32_t SetXmlInput(XmlContext* context, const char* input, std::int32_t inputLength);

// Is there a start tag of this prefix and name with a space behind it, that is, with attributes?
XmlResult FindPrefixedStartTag(const XmlContext* context, const char* prefix, const char* name);

// A value where it stands in the input.
struct XmlText {
  const char* begin;
  std::int32_t length;
};

// Finds the text between the first "<name>" and the next "</name>"; one of more than `maxLength`
// bytes is a bad argument.
XmlResult FindElementText(const XmlContext* context, std::string_view name, std::int32_t maxLength,
                          XmlText* found);

// Copies that text into `out`, a buffer of maxLength + 1 bytes, which is zeroed first.
XmlResult ReadElementText(const XmlContext* context, const char* name, std::int32_t maxLength,
                          char* out);

// 1 when the text is white space, one sign and digits, in this order and each optional; else 0.
std::int32_t IsIntegerText(const char* text);

// The number that the text begins with; 0 for null.
std::int32_t ParseIntegerText(const char* text);

}  // namespace zvqrn
