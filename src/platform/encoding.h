// The ANSI code page of the process.  Any thread.
#pragma once

#include <cstdint>

namespace zvqrn::platform {

// True when the byte begins a double-byte character.
bool IsLeadByte(char byte);

// Converts a NUL-terminated text from the ANSI code page to UTF-8, by way of UTF-16.  Gives the
// bytes that the result takes, its NUL included, and writes them when `size` is large enough; 0
// when the text cannot be converted.
std::int32_t AnsiToUtf8Bytes(const char* text, char* utf8, std::int32_t size);

}  // namespace zvqrn::platform
