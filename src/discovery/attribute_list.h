// The attribute list of discovery's replies (RFC 2608, section 5): the PC's name, its address and
// the port of its event server, read afresh for each reply.  The name's reserved characters are
// escaped with a backslash and otherwise kept as they are.
#pragma once

#include <cstdint>

namespace zvqrn {

// No list is longer than the field that carries its length.
constexpr std::int32_t ATTRIBUTE_LIST_LIMIT = 65535;

// A new text that the caller frees, and its length without the NUL; null and 0 while the PC has no
// usable address or no name, and when memory runs out.  Takes identityLock.
void BuildAttributeList(char** text, std::int32_t* length);

// A new text with a backslash before each backslash, parenthesis and comma; null when the value is
// missing or empty or memory runs out.  Double-byte characters of the ANSI code page stay whole;
// half of one at the end is left out, because nobody could show it.
char* EscapeAttributeValue(const char* value);

// A new text in UTF-8 and its length without the NUL; null and 0 when the text cannot be converted.
void AnsiToUtf8(const char* text, char** utf8, std::int32_t* utf8Length);

}  // namespace zvqrn
