#include "platform/encoding.h"

#include <langinfo.h>

#include <cstring>

namespace zvqrn::platform {
namespace {

// The characters of Windows-1252 at 0x80 to 0x9F; what it leaves undefined maps to itself, as
// Windows maps it.
constexpr char16_t UPPER_CONTROLS[32] = {
    0x20AC, 0x81,   0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x8D,   0x017D, 0x8F,   0x90,   0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x9D,   0x017E, 0x0178};

char16_t CharacterOf(unsigned char byte) {
  return byte >= 0x80 && byte < 0xA0 ? UPPER_CONTROLS[byte - 0x80] : byte;
}

// Writes a character of one to three bytes and gives their count.
std::int32_t EncodeUtf8(char16_t character, char (&bytes)[3]) {
  if (character < 0x80) {
    bytes[0] = static_cast<char>(character);
    return 1;
  }
  if (character < 0x800) {
    bytes[0] = static_cast<char>(0xC0 | (character >> 6));
    bytes[1] = static_cast<char>(0x80 | (character & 0x3F));
    return 2;
  }
  bytes[0] = static_cast<char>(0xE0 | (character >> 12));
  bytes[1] = static_cast<char>(0x80 | ((character >> 6) & 0x3F));
  bytes[2] = static_cast<char>(0x80 | (character & 0x3F));
  return 3;
}

}  // namespace

// Windows-1252 has none, and no byte of a UTF-8 character can be taken for an ASCII one.
bool IsLeadByte(char /*byte*/) {
  return false;
}

// The ANSI code page is Windows-1252, unless the process has chosen UTF-8 with setlocale().
bool IsUtf8CodePage() {
  return strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
}

std::int32_t AnsiToUtf8Bytes(const char* text, char* utf8, std::int32_t size) {
  const bool alreadyUtf8 = IsUtf8CodePage();
  std::int32_t used = 0;
  for (bool more = true; more; text++) {
    more = *text != '\0';
    char bytes[3] = {*text};
    const std::int32_t count =
        alreadyUtf8 ? 1 : EncodeUtf8(CharacterOf(static_cast<unsigned char>(*text)), bytes);
    if (used + count <= size) {
      memcpy(utf8 + used, bytes, static_cast<std::size_t>(count));
    }
    used += count;
  }
  return used;
}

}  // namespace zvqrn::platform
