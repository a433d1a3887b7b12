// The ANSI code page of the process.  Any thread.
#pragma once

#include <cstdint>

namespace zvqrn::platform {

// True when the byte begins a double-byte character.
bool IsLeadByte(char byte);

// True when the code page is UTF-8, which has no lead bytes in that sense.
bool IsUtf8CodePage();

// Converts a NUL-terminated text from the ANSI code page to UTF-8, by way of UTF-16.  Gives the
// bytes that the result takes, its NUL included, and writes them when `size` is large enough; 0
// when the text cannot be converted.
std::int32_t AnsiToUtf8Bytes(const char* text, char* utf8, std::int32_t size);

}  // namespace zvqrn::platform
