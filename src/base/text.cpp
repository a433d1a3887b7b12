#include "base/text.h"

#include <cstring>

#include "base/allocation.h"
#include "platform/encoding.h"

namespace zvqrn {

void CopyBounded(char* destination, const char* source, std::int32_t size) {
  std::int32_t used = 0;
  while (used < size - 1 && source[used] != '\0') {
    destination[used] = source[used];
    used++;
  }
  std::memset(destination + used, 0, static_cast<std::size_t>(size - used));
}

char* CopyText(const char* text) {
  const std::size_t size = std::strlen(text) + 1;
  char* copy = NewBytes(static_cast<std::int64_t>(size));
  if (copy != nullptr) {
    std::memcpy(copy, text, size);
  }
  return copy;
}

char ToCapital(char letter) {
  return letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
}

std::int32_t EqualsIgnoringCase(const char* a, const char* b) {
  if (a == nullptr || b == nullptr) {
    return -1;
  }
  while (*a != '\0' && ToCapital(*a) == ToCapital(*b)) {
    a++;
    b++;
  }
  const auto left = static_cast<unsigned char>(ToCapital(*a));
  const auto right = static_cast<unsigned char>(ToCapital(*b));
  if (left == right) {
    return 0;
  }
  return left < right ? -1 : 1;
}

bool BeginsIgnoringCase(const char* text, const char* prefix) {
  while (*prefix != '\0' && ToCapital(*text) == ToCapital(*prefix)) {
    text++;
    prefix++;
  }
  return *prefix == '\0';
}

bool IsWord(const char* text, std::size_t length, const char* word) {
  std::size_t used = 0;
  while (used < length && word[used] != '\0' && ToCapital(text[used]) == ToCapital(word[used])) {
    used++;
  }
  return used == length && word[used] == '\0';
}

bool IsDigit(char letter) {
  return letter >= '0' && letter <= '9';
}

bool IsWhiteSpace(char letter) {
  return letter == ' ' || (letter >= '\t' && letter <= '\r');
}

std::int32_t DecimalNumber(const char* text) {
  return DecimalNumber(text, text + std::strlen(text));
}

std::int32_t DecimalNumber(const char* at, const char* end) {
  while (at != end && IsWhiteSpace(*at)) {
    at++;
  }
  const bool negative = at != end && *at == '-';
  if (at != end && (*at == '-' || *at == '+')) {
    at++;
  }
  std::int64_t number = 0;
  for (; at != end && IsDigit(*at); at++) {
    number = number * 10 + (*at - '0');
    if (number > INT32_MAX) {
      return negative ? INT32_MIN : INT32_MAX;
    }
  }
  return static_cast<std::int32_t>(negative ? -number : number);
}

namespace {

// How many bytes a UTF-8 sequence has that begins with this byte; 0 for one that begins none.
std::int32_t SequenceLength(unsigned char byte) {
  if (byte < 0x80) {
    return 1;
  }
  if (byte < 0xC0) {
    return 0;
  }
  return byte < 0xE0 ? 2 : byte < 0xF0 ? 3 : 4;
}

bool EndsInsideSequence(const char* text, std::int32_t length) {
  std::int32_t count = 1;  // from the last byte that may begin a sequence on
  while (count < length && SequenceLength(static_cast<unsigned char>(text[length - count])) == 0) {
    count++;
  }
  return SequenceLength(static_cast<unsigned char>(text[length - count])) > count;
}

}  // namespace

bool EndsInsideCharacter(const char* text, std::int32_t length) {
  if (platform::IsUtf8CodePage()) {
    return EndsInsideSequence(text, length);
  }
  std::int32_t at = 0;
  while (at < length - 1) {
    at += platform::IsLeadByte(text[at]) ? 2 : 1;
  }
  return at == length - 1 && platform::IsLeadByte(text[at]);
}

void FormatDecimal(std::uint32_t number, char (&text)[DECIMAL_TEXT_SIZE]) {
  char digits[DECIMAL_TEXT_SIZE];
  std::int32_t count = 0;
  do {
    digits[count++] = static_cast<char>('0' + number % 10);
    number /= 10;
  } while (number != 0);
  for (std::int32_t i = 0; i < count; i++) {
    text[i] = digits[count - 1 - i];
  }
  text[count] = '\0';
}

}  // namespace zvqrn
