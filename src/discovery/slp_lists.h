// The comma-separated lists of discovery's requests: scopes, whose items may hold an escaped comma,
// and previous responders, which are addresses.  Texts are NUL-terminated; scope lists are UTF-8.
// A backslash takes the ASCII character behind it as it is; the hexadecimal escapes of RFC 2608,
// section 5, are not decoded.  No state; any thread.
#pragma once

#include <cstdint>

namespace zvqrn {

// The next occurrence of `separator` that no backslash escapes, or null.
const char* FindSeparator(const char* text, const char* separator);

// 1 and the number of elements; an empty list holds one, a trailing separator opens none.  0 when
// an argument is missing.
std::int32_t CountListElements(const char* list, const char* separator, std::int32_t* count);

// 1 and a new text (the caller frees it) with the element of that index, counted from 1, its
// escapes removed; 0 when there is none, it is empty, or it is not well-formed.
std::int32_t GetListElement(const char* list, const char* separator, std::int32_t index,
                            char** element);

// Removes the escapes; the text's new length, or -1 when it is not valid UTF-8 or a backslash
// stands before nothing or before a character of several bytes.
std::int32_t UnescapeInPlace(char* text);

// The number of characters; -1 when one is not valid.
std::int32_t CountUtf8Chars(const char* text);

// 0 at the end of the text, 1 to 4 for a character, -1 for anything else.
std::int32_t Utf8CharLength(const char* bytes);

// 1 when the address is an element of the list, compared without regard to case; else 0.
std::int32_t IsInResponderList(const char* list, const char* address, char separator);

}  // namespace zvqrn
