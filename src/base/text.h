// Small operations on 8-bit text that every room uses.  No state; any thread.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zvqrn {

// Copies as strncpy does for `size` bytes, then makes the last of them NUL: at most size - 1 bytes
// of text survive.  The destination holds `size` bytes, at least 1.
void CopyBounded(char* destination, const char* source, std::int32_t size);

// A copy of a NUL-terminated text, owned by the caller; null when memory runs out.
char* CopyText(const char* text);

// 0 when the texts are equal with the letters a to z taken as capitals; otherwise -1 when `a` is
// smaller at the first difference (bytes compare as unsigned values) or either text is null,
// else 1.
std::int32_t EqualsIgnoringCase(const char* a, const char* b);

// True when `text` begins with `prefix`, letters a to z taken as capitals.
bool BeginsIgnoringCase(const char* text, const char* prefix);

// True when `length` bytes from `text` on are `word`, letters a to z taken as capitals.
bool IsWord(const char* text, std::size_t length, const char* word);

char ToCapital(char letter);

// The decimal number at the start of `text`, as the standard atoi reads it: white space, a sign,
// digits up to the first other byte; 0 when there are none.  A number that does not fit becomes
// the nearest one that does.
std::int32_t DecimalNumber(const char* text);
// The same for the text from `at` to `end`.
std::int32_t DecimalNumber(const char* at, const char* end);

bool IsDigit(char letter);
// Space, tab, line feed, vertical tab, form feed or carriage return.
bool IsWhiteSpace(char letter);

// True when `length` bytes (at least 1) end inside a character of the ANSI code page: with a lead
// byte, judged from the start of the text, or with the beginning of a UTF-8 sequence (RFC 3629,
// section 3).
bool EndsInsideCharacter(const char* text, std::int32_t length);

// A non-negative number as decimal digits without sign or leading zeros.
constexpr std::int32_t DECIMAL_TEXT_SIZE = 12;
void FormatDecimal(std::uint32_t number, char (&text)[DECIMAL_TEXT_SIZE]);

}  // namespace zvqrn
